#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>

#include "kvo/media/hardware/Region.h"

namespace {

using kvo::media::hardware::Region;

constexpr std::uint32_t kMax = 4294967295U;

std::array<std::uint32_t, 6> fields(Region const& region) {
    return {region.left,   region.top,      region.right,
            region.bottom, region.refWidth, region.refHeight};
}

TEST(Region, ScalesInSinglePrecisionAndGrowsToWholePixels) {
    struct Case {
        char const* what;
        Region region;
        unsigned int width;
        unsigned int height;
        Region scaled;
    };
    Case const cases[]{
        {"exact", {0, 0, 1920, 1080, 1920, 1080}, 3840, 2160, {0, 0, 3840, 2160, 3840, 2160}},
        {"outward", {1, 1, 719, 479, 720, 480}, 1920, 1080, {2, 2, 1918, 1078, 1920, 1080}},
        {"snaps", {59, 30, 141, 70, 100, 100}, 5, 5, {3, 1, 7, 4, 5, 5}},
        {"no width before", {10, 10, 100, 100, 0, 720}, 1920, 1080, {10, 10, 100, 100, 0, 720}},
        {"no height before", {10, 10, 100, 100, 720, 0}, 1920, 1080, {10, 10, 100, 100, 720, 0}},
        {"no width after", {10, 10, 100, 100, 720, 480}, 0, 1080, {10, 10, 100, 100, 720, 480}},
        {"no height after", {10, 10, 100, 100, 720, 480}, 1920, 0, {10, 10, 100, 100, 720, 480}},
        // Every edge of the next two comes out otherwise in double precision, with the product
        // taken first or with a reciprocal.
        {"order", {58, 98, 2, 22, 100, 100}, 5, 5, {2, 5, 0, 2, 5, 5}},
        {"order", {380, 180, 420, 820, 1000, 1000}, 5, 5, {1, 1, 2, 4, 5, 5}},
        {"too far", {kMax, 3, 5, kMax, 2, 1}, 5, 1U << 31, {kMax, kMax, 13, kMax, 5, 1U << 31}},
    };
    for (Case const& test : cases) {
        Region scaled = test.region;
        scaled.scale(test.width, test.height);
        EXPECT_EQ(fields(scaled), fields(test.scaled)) << test.what;
    }
}

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
TEST(Region, ScalesAlikeOnEveryMachine) {
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
        for (std::uint32_t const value : fields(region)) {
            add(hash, value);
        }
    }
    EXPECT_EQ(hash, 0x973045f2b7b8b3d2U);
}

}  // namespace
