#include "scheduler/Races.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

namespace interleave {

namespace {

struct Word {
    std::uint64_t run = 0;
    Clock heard;
    std::vector<LibraryAccess> accesses;
};

/// The threads' heaps and stacks are at the same place in each run.
std::unordered_map<std::uintptr_t, Word> gWords;
std::uint64_t gRun = 0;

Word& find(std::uintptr_t word) {
    Word& found = gWords[word];
    if (found.run != gRun) {
        found.run = gRun;
        found.heard = {};
        found.accesses.clear();
    }
    return found;
}

}  // namespace

void forgetAccesses() { ++gRun; }

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
