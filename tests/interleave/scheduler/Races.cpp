#include "scheduler/Races.h"

#include <algorithm>
#include <vector>

namespace interleave {

namespace {

struct Word {
    std::uintptr_t word = 0;
    std::uint64_t run = 0;
    Clock heard;
    std::vector<LibraryAccess> accesses;
};

/// The threads' heaps and stacks are at the same place in each run; what else there is comes and
/// goes.
std::vector<Word> gWords(1U << 16U);
std::size_t gUsed = 0;  ///< Of these.
std::uint64_t gRun = 0;

Word& find(std::uintptr_t word) {
    std::size_t index = word * 0x9E3779B97F4A7C15U >> 48U;
    while (gWords[index].word != word && gWords[index].word != 0) {
        index = (index + 1) % gWords.size();
    }
    Word& found = gWords[index];
    if (found.run != gRun) {
        gUsed += found.word == 0 ? 1 : 0;
        found.word = word;
        found.run = gRun;
        found.heard = {};
        found.accesses.clear();
    }
    return found;
}

}  // namespace

void forgetAccesses() {
    ++gRun;
    if (gUsed > gWords.size() / 2) {
        gWords.assign(gWords.size(), {});
        gUsed = 0;
    }
}

LibraryAccess const* findRace(std::uintptr_t word, LibraryAccess const& access,
                              Clock const& clock) {
    auto& accesses = find(word).accesses;
    for (auto const& other : accesses) {
        bool const areApart = (other.bytes & access.bytes) == 0 || other.thread == access.thread;
        bool const mayRace = (other.isWrite || access.isWrite) && (other.isPlain || access.isPlain);
        if (!areApart && mayRace && clock.steps.at(other.thread) < other.time) {
            return &other;
        }
    }
    auto const isReplaced = [&](LibraryAccess const& other) {
        return other.thread == access.thread && other.isWrite == access.isWrite &&
               other.isPlain == access.isPlain && (other.bytes & ~access.bytes) == 0;
    };
    accesses.erase(std::remove_if(accesses.begin(), accesses.end(), isReplaced), accesses.end());
    accesses.push_back(access);
    return nullptr;
}

Clock& heardIn(std::uintptr_t word) { return find(word).heard; }

}  // namespace interleave
