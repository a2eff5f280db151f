#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// The colour description of a stream, in the code points of ITU-T H.273; 2 is "unspecified".
struct ColorAspect {
    std::int32_t primaries = 2;
    std::int32_t transfer = 2;
    std::int32_t matrix = 2;
    std::int32_t fullRange = 0;  ///< Not 0 when samples use the full range.
};

}  // namespace kvo::media::hardware
