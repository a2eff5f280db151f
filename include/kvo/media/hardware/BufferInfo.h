#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// One decoded output buffer. The codec fills the first fields. The decoder wrapper writes the last
/// three, its own resources, when it hands the buffer on. Whoever gives the buffer back sets
/// `videoPort` to the port that showed it: the wrapper reads it.
struct BufferInfo {
    std::int32_t bufferId = 0;
    std::int32_t width = 0;         ///< Pixels.
    std::int32_t height = 0;        ///< Pixels.
    std::uint32_t endOfStream = 0;  ///< Not 0 when no picture follows; then there is none here.
    std::uint64_t timestampUs = 0;

    std::int32_t videoPort = -1;   ///< Display port from 0, -1 for none.
    std::int32_t resourceId = 0;   ///< The resource client's unique id, -1 if unknown.
    std::int32_t callingPid = -1;  ///< Process that uses the decoder, below 1 if unknown.
};

}  // namespace kvo::media::hardware
