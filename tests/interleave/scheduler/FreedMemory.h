#pragma once

#include <cstddef>

/// The heap of a run. Each thread has its own part, so that a step gets the same addresses in
/// whatever order the steps of others came. Memory that is freed is kept, full of a pattern, until
/// the run ends: whoever uses it is found out.
namespace interleave {

/// Begins a run, with all memory free.
void emptyHeap();

/// Says whether `object`, of 16 bytes or more, lies in memory that was freed.
bool isFreed(void const* object);

/// Says whether no memory was written to after it was freed.
bool isFreedUntouched();

}  // namespace interleave
