#pragma once

#include "Report.h"

// Each measures one group of figures and their floors; progress goes to standard error.

/// What the guard adds to a call of one thread, or of two that use the decoder together.
Rows guardedCalls(bool together);

/// What the wrappers add to the heap allocations of a call, and what an idle one holds.
Rows wrapperHeap();

/// From the last call leaving a codec to its release by a reclaim that waits for that.
Rows reclaimDelay();

/// How long a reclaim takes to find its owner among many.
Rows reclaimDispatch();

/// What a call of a codec through a wrapper costs where calls are not logged.
Rows callLogCost();

/// What an acquisition and release cost of the resource manager within the process.
Rows acquisitionCost();
