#include "scheduler/FreedMemory.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "scheduler/Access.h"
#include "scheduler/Scheduler.h"
#include "scheduler/Trace.h"

namespace interleave {

namespace {

constexpr unsigned char kPattern = 0xDD;  ///< As an address it belongs to nobody.
constexpr std::size_t kSmallestBlock = 16;
constexpr std::size_t kHeapSize = 1024 * 1024;  ///< Of a thread.

struct Heap {
    alignas(kSmallestBlock) std::array<unsigned char, kHeapSize> memory;
    std::size_t used;
};
std::array<Heap, kMaxThreads> gHeaps;
std::vector<unsigned char*> gFreed;

/// Before each block stands its size.
std::size_t& sizeOf(unsigned char* block) {
    return *reinterpret_cast<std::size_t*>(block - kSmallestBlock);
}

bool isPattern(unsigned char const* memory, std::size_t size) {
    return std::all_of(memory, memory + size, [](unsigned char byte) { return byte == kPattern; });
}

bool isInHeap(void const* memory) {
    auto const* const byte = static_cast<unsigned char const*>(memory);
    auto const* const begin = reinterpret_cast<unsigned char const*>(gHeaps.data());
    return byte >= begin && byte < begin + sizeof gHeaps;
}

void* allocate(std::size_t size) {
    if (!isWatching()) {
        return std::malloc(size);
    }
    Heap& heap = gHeaps.at(threadNumber());
    std::size_t const rounded = (size + kSmallestBlock) / kSmallestBlock * kSmallestBlock;
    expect(heap.used + kSmallestBlock + rounded <= kHeapSize, "a thread fills its heap");
    unsigned char* const block = heap.memory.data() + heap.used + kSmallestBlock;
    heap.used += kSmallestBlock + rounded;
    sizeOf(block) = rounded;
    std::memset(block, 0, kSmallestBlock);  // It may be as it was freed in the run before.
    return block;
}

void release(void* memory, void const* code) noexcept {
    if (!isInHeap(memory)) {
        std::free(memory);
        return;
    }
    if (!isWatching()) {
        return;
    }
    auto* const block = static_cast<unsigned char*>(memory);
    expect(!isFreed(memory), "memory is freed twice");
    noteAccess(memory, sizeOf(block), true, code);
    std::memset(memory, kPattern, sizeOf(block));
    Unseen const unseen;
    gFreed.push_back(block);
}

}  // namespace

void emptyHeap() {
    gFreed.clear();
    for (Heap& heap : gHeaps) {
        heap.used = 0;
    }
}

bool isFreed(void const* object) {
    return isPattern(static_cast<unsigned char const*>(object), kSmallestBlock);
}

bool isFreedUntouched() {
    return std::all_of(gFreed.begin(), gFreed.end(),
                       [](unsigned char* block) { return isPattern(block, sizeOf(block)); });
}

}  // namespace interleave

void* operator new(std::size_t size) {
    void* const memory = interleave::allocate(size);
    if (memory == nullptr) {
        std::abort();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    interleave::release(memory, __builtin_return_address(0));
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    interleave::release(memory, __builtin_return_address(0));
}
