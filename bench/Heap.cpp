#include "Heap.h"

#include <cstdlib>
#include <new>

namespace {

thread_local HeapUse tUse;

}  // namespace

// In place of the language runtime's, for the shared libraries as well; the other forms end here.

void* operator new(std::size_t size) {
    ++tUse.allocations;
    tUse.bytes += size;
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

HeapUse heapUseOf(std::function<void()> const& action) {
    HeapUse const before = tUse;
    action();
    return {tUse.allocations - before.allocations, tUse.bytes - before.bytes};
}
