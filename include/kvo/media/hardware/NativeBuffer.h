#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// A picture buffer of the platform, always held by shared reference and passed through.
struct NativeBuffer {
    std::int32_t handle = -1;
    std::int32_t width = 0;   ///< Pixels.
    std::int32_t height = 0;  ///< Pixels.
    std::int32_t stride = 0;  ///< Bytes from one line to the next.
    std::int32_t colorFormat = 0;
    std::uint64_t timestampUs = 0;
};

}  // namespace kvo::media::hardware
