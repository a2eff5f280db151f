#pragma once

#include <cstddef>
#include <functional>

/// Memory requested from the heap.
struct HeapUse {
    std::size_t allocations = 0;
    std::size_t bytes = 0;
};

/// Returns what this thread requests while it runs `action`, in the library and the stand-ins too.
HeapUse heapUseOf(std::function<void()> const& action);
