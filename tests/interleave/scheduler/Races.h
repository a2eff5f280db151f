#pragma once

#include <cstddef>
#include <cstdint>

#include "scheduler/Trace.h"

/// Finds accesses of the libraries to memory that nothing orders. A thread's clock counts, for each
/// thread, up to which of its releases it has heard from it: of locks, of atomics, or as it
/// started.
namespace interleave {

/// The last access of its kind by a thread.
struct LibraryAccess {
    std::uint8_t bytes;  ///< Of the word, a bit each.
    bool isWrite;
    bool isPlain;  ///< Not atomic.
    std::size_t thread;
    std::uint32_t time;  ///< By its thread's clock.
};

/// Begins a run: no memory was touched.
void forgetAccesses();

/// Notes an access by a thread that has `clock`. Returns an earlier one, of which one is plain and
/// one writes, that does not come before it; or null.
LibraryAccess const* findRace(std::uintptr_t word, LibraryAccess const& access, Clock const& clock);

}  // namespace interleave
