#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// What a decoder knows of the stream it decodes; all 0 before the first picture.
struct FrameInfo {
    std::int32_t width = 0;           ///< Pixels.
    std::int32_t height = 0;          ///< Pixels.
    std::uint32_t decodedFrames = 0;  ///< Pictures decoded since the last configuration.
    std::uint32_t droppedFrames = 0;  ///< Pictures lost to errors since then.
};

}  // namespace kvo::media::hardware
