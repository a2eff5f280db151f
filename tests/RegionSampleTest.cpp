#include <gtest/gtest.h>

#include <cstdint>
#include <random>

#include "kvo/media/hardware/Region.h"

namespace {

using kvo::media::hardware::Region;

constexpr int kRegions = 1'000'000;

/// Draws from all magnitudes alike, 0 included.
std::uint32_t draw(std::mt19937& source) {
    std::uint32_t const value = static_cast<std::uint32_t>(source());
    return value >> (source() % 32U);
}

/// Adds a value to an FNV-1a hash of 64 bits, lowest byte first.
void add(std::uint64_t& hash, std::uint32_t value) {
    for (int byte = 0; byte < 4; ++byte) {
        hash = (hash ^ (value & 0xffU)) * 0x100000001b3U;
        value >>= 8U;
    }
}

// Every build of the library places a window on the very same pixels: the checksum was computed
// apart from this code, from the rules of IEEE 754 alone.
TEST(RegionSample, ScalesAlikeOnEveryMachine) {
    std::mt19937 source(20240229);
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (int i = 0; i < kRegions; ++i) {
        Region region;
        for (auto* field : {&region.left, &region.top, &region.right, &region.bottom,
                            &region.refWidth, &region.refHeight}) {
            *field = draw(source);
        }
        std::uint32_t const width = draw(source);
        std::uint32_t const height = draw(source);
        region.scale(width, height);
        for (std::uint32_t const value : {region.left, region.top, region.right, region.bottom,
                                          region.refWidth, region.refHeight}) {
            add(hash, value);
        }
    }
    EXPECT_EQ(hash, 0x973045f2b7b8b3d2U);
}

}  // namespace
