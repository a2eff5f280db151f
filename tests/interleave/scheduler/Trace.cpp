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

void Footprint::add(Access const& access) {
    if (!mAccesses.empty()) {
        Access& last = mAccesses.back();
        if (last.word == access.word) {
            merge(last, access);
            return;
        }
    }
    mAccesses.push_back(access);
}

void Footprint::sort() {
    std::stable_sort(mAccesses.begin(), mAccesses.end(),
                     [](Access const& a, Access const& b) { return a.word < b.word; });
    std::size_t count = 0;
    for (Access const& access : mAccesses) {
        if (count != 0 && mAccesses[count - 1].word == access.word) {
            merge(mAccesses[count - 1], access);
        } else {
            mAccesses[count++] = access;
        }
    }
    mAccesses.resize(count);
    mAccesses.shrink_to_fit();
    for (Access const& access : mAccesses) {
        std::uint64_t const hash = access.word * 0x9E3779B97F4A7C15U;
        std::uint64_t const bit = std::uint64_t{1} << (hash >> 58U);
        std::size_t const part = hash >> 32U & 3U;
        mTouched[part] |= bit;
        mWritten[part] |= (access.writes | access.counts) != 0 ? bit : 0;
    }
}

bool Footprint::mayShare(Footprint const& other) const {
    std::uint64_t shared = 0;
    for (std::size_t part = 0; part < mTouched.size(); ++part) {
        shared |= (mWritten[part] & other.mTouched[part]) | (mTouched[part] & other.mWritten[part]);
    }
    return shared != 0;
}

bool Footprint::conflicts(Footprint const& other) const {
    if (!mayShare(other)) {
        return false;
    }
    auto mine = mAccesses.begin();
    auto theirs = other.mAccesses.begin();
    while (mine != mAccesses.end() && theirs != other.mAccesses.end()) {
        if (mine->word == theirs->word && conflict(*mine, *theirs)) {
            return true;
        }
        mine->word <= theirs->word ? ++mine : ++theirs;
    }
    return false;
}

}  // namespace interleave
