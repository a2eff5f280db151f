#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// A video codec. Values outside the list have no MIME type; for an encoder only AVC and VP8 have
/// one.
enum class CodecType : std::int32_t {
    AVC = 1,
    HEVC = 2,
    VP9 = 3,
    AV1 = 4,
    MPEG4 = 5,
    MPEG2 = 6,
    H263 = 7,
    MJPEG = 8,
    DOLBY_VISION = 9,
    VP8 = 11,
    VVC = 12,
};

}  // namespace kvo::media::hardware
