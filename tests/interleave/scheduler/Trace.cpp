#include "scheduler/Trace.h"

namespace interleave {

namespace {

void merge(Access& access, Access const& other) {
    access.reads |= other.reads;
    access.writes |= other.writes;
    access.counts |= other.counts;
    access.isDropped = access.isDropped || other.isDropped;
    access.isPromoted = access.isPromoted || other.isPromoted;
    access.code = other.code;
}

/// Who drops a reference may have the last one, so that such steps are in order, and so are they
/// and those that take one where there may be none. To take one more, or to look whether there is
/// any, matters to the last one only, which writes.
bool conflict(Access const& a, Access const& b) {
    bool const isLastAtStake =
        (a.isDropped && (b.isDropped || b.isPromoted)) || (a.isPromoted && b.isDropped);
    return ((a.writes & (b.reads | b.writes | b.counts)) | (b.writes & (a.reads | a.counts)) |
            (a.reads & b.counts) | (a.counts & b.reads)) != 0 ||
           (isLastAtStake && (a.counts & b.counts) != 0);
}

}  // namespace

void Footprint::sort() {
    std::stable_sort(accesses.begin(), accesses.end(),
                     [](Access const& a, Access const& b) { return a.word < b.word; });
    std::size_t count = 0;
    for (Access const& access : accesses) {
        if (count != 0 && accesses[count - 1].word == access.word) {
            merge(accesses[count - 1], access);
        } else {
            accesses[count++] = access;
        }
    }
    accesses.resize(count);
    accesses.shrink_to_fit();
}

bool Footprint::conflicts(Footprint const& other) const {
    auto mine = accesses.begin();
    auto theirs = other.accesses.begin();
    while (mine != accesses.end() && theirs != other.accesses.end()) {
        if (mine->word == theirs->word && conflict(*mine, *theirs)) {
            return true;
        }
        mine->word <= theirs->word ? ++mine : ++theirs;
    }
    return false;
}

}  // namespace interleave
