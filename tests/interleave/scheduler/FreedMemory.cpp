#include "scheduler/FreedMemory.h"

#include <link.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
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

struct Range {
    std::uintptr_t begin;
    std::uintptr_t end;
};
std::vector<Range> gLeftAlone;

int addRange(dl_phdr_info* library, std::size_t /*size*/, void* name) {
    std::string const path = library->dlpi_name;
    if (path.compare(path.rfind('/') + 1, std::strlen(static_cast<char*>(name)),
                     static_cast<char*>(name)) != 0) {
        return 0;
    }
    for (int index = 0; index < library->dlpi_phnum; ++index) {
        auto const& part = library->dlpi_phdr[index];
        if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
            std::uintptr_t const begin = library->dlpi_addr + part.p_vaddr;
            gLeftAlone.push_back({begin, begin + part.p_memsz});
        }
    }
    return 0;
}

bool isLeftAlone(void const* code) {
    auto const address = reinterpret_cast<std::uintptr_t>(code);
    return std::any_of(gLeftAlone.begin(), gLeftAlone.end(), [=](Range const& range) {
        return address >= range.begin && address < range.end;
    });
}

void* allocate(std::size_t size, void const* code) {
    if (!isWatching() || isLeftAlone(code)) {
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
    noteAccess(memory, sizeOf(block), true, true, code);
    std::memset(memory, kPattern, sizeOf(block));
    Unseen const unseen;
    gFreed.push_back(block);
}

}  // namespace

void leaveAlone(char const* name) { dl_iterate_phdr(addRange, const_cast<char*>(name)); }

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
    void* const memory = interleave::allocate(size, __builtin_return_address(0));
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
