#include "scheduler/FreedMemory.h"

#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "scheduler/Scheduler.h"

namespace interleave {

namespace {

constexpr unsigned char kPattern = 0xDD;  ///< As an address it belongs to nobody.
constexpr std::size_t kSmallestBlock = 16;

struct Block {
    unsigned char* memory;
    std::size_t size;
};

std::array<Block, 20'000> gBlocks;
std::size_t gBlockCount = 0;

bool isPattern(unsigned char const* memory, std::size_t size) {
    return std::all_of(memory, memory + size, [](unsigned char byte) { return byte == kPattern; });
}

void release(void* memory) noexcept {
    if (memory == nullptr || !isRunning() || gBlockCount == gBlocks.size()) {
        std::free(memory);
        return;
    }
    expect(!isFreed(memory), "memory is freed twice");
    std::size_t const size = malloc_usable_size(memory);
    std::memset(memory, kPattern, size);
    gBlocks[gBlockCount++] = {static_cast<unsigned char*>(memory), size};
}

}  // namespace

bool isFreed(void const* object) {
    return isPattern(static_cast<unsigned char const*>(object), kSmallestBlock);
}

bool freeAll() {
    bool isUntouched = true;
    for (; gBlockCount != 0; --gBlockCount) {
        Block const& block = gBlocks[gBlockCount - 1];
        isUntouched = isUntouched && isPattern(block.memory, block.size);
        std::free(block.memory);
    }
    return isUntouched;
}

}  // namespace interleave

void* operator new(std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        std::abort();
    }
    return memory;
}

void operator delete(void* memory) noexcept { interleave::release(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { interleave::release(memory); }
