#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// One decoded output buffer. The codec fills the first fields; the last three name the decoder's
/// own resources and are overwritten by the decoder wrapper when it hands the buffer on.
struct BufferInfo {
    std::int32_t bufferId = 0;
    std::int32_t width = 0;         ///< Pixels.
    std::int32_t height = 0;        ///< Pixels.
    std::uint32_t endOfStream = 0;  ///< Not 0 when no picture follows; then there is none here.
    std::uint64_t timestampUs = 0;

    std::int32_t videoPort = -1;   ///< Display port from 0, -1 for none.
    std::int32_t resourceId = 0;   ///< The resource client's unique id.
    std::int32_t callingPid = -1;  ///< Process that uses the decoder, -1 if unknown.
};

}  // namespace kvo::media::hardware
