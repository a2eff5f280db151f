#pragma once

#include <cstddef>
#include <cstdint>

namespace kvo::media::hardware {

/// One uncompressed picture. The pixels stay where the platform keeps them: `buffer` is the
/// reference by which the platform knows them, 32 bits wide on every host.
struct Image {
    std::int32_t colorFormat = 0;
    std::int32_t width = 0;        ///< Pixels.
    std::int32_t height = 0;       ///< Pixels.
    std::int32_t sliceHeight = 0;  ///< Lines from one plane to the next; 0 when they follow on.
    std::uint32_t buffer = 0;
    std::int32_t bufferLength = 0;  ///< Bytes.
    std::int32_t stride = 0;        ///< Bytes from one line to the next.
};

static_assert(offsetof(Image, width) == 4 && offsetof(Image, height) == 8 &&
              offsetof(Image, buffer) == 16 && offsetof(Image, bufferLength) == 20 &&
              offsetof(Image, stride) == 24);

}  // namespace kvo::media::hardware
