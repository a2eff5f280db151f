#include "scheduler/Races.h"

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

namespace interleave {

namespace {

struct Word {
    std::uint64_t run = 0;
    std::vector<LibraryAccess> accesses;
};

/// The threads' heaps and stacks are at the same place in each run.
std::unordered_map<std::uintptr_t, Word> gWords;
std::uint64_t gRun = 0;

}  // namespace

void forgetAccesses() { ++gRun; }

LibraryAccess const* findRace(std::uintptr_t word, LibraryAccess const& access,
                              Clock const& clock) {
    auto& [run, accesses] = gWords[word];
    if (std::exchange(run, gRun) != gRun) {
        accesses.clear();
    }
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

}  // namespace interleave
