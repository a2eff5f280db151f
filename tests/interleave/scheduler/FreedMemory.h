#pragma once

/// Memory that is freed in a run is kept, full of a pattern, until the run ends: whoever uses it is
/// found out.
namespace interleave {

/// Says whether `object`, of 16 bytes or more, lies in memory that was freed.
bool isFreed(void const* object);

/// Gives all of it back, after the run. Returns false when some was written to.
bool freeAll();

}  // namespace interleave
