#pragma once

#include <cstdint>
#include <vector>

namespace kvo::media::hardware {

/// One decoded picture in a pixel buffer of the codec. The default describes no picture.
struct PixelInfo {
    /// Where one plane of the picture lies in the bytes that copyFromPixelBuffer delivers.
    struct Plane {
        std::uint32_t offset = 0;  ///< Bytes from the start.
        std::uint32_t stride = 0;  ///< Bytes from one line to the next.
        std::uint32_t lines = 0;
    };

    std::int32_t bufferId = -1;
    std::int32_t colorFormat = 0;
    std::int32_t width = 0;         ///< Pixels.
    std::int32_t height = 0;        ///< Pixels.
    std::uint32_t length = 0;       ///< Bytes of the whole picture.
    std::uint32_t endOfStream = 0;  ///< Not 0 when no picture follows; then there is none here.
    std::uint64_t timestampUs = 0;
    std::vector<Plane> planes;
};

}  // namespace kvo::media::hardware
