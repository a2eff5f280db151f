#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// The type of an encoded picture.
enum class PicType : std::int32_t {
    UNKNOWN = 0,
    I = 1,
    P = 2,
    B = 3,
};

}  // namespace kvo::media::hardware
