#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// A rectangle, with the size of the space in which its edges are expressed.
struct Region {
    std::uint32_t left = 0;    ///< First column inside.
    std::uint32_t top = 0;     ///< First row inside.
    std::uint32_t right = 0;   ///< First column past it.
    std::uint32_t bottom = 0;  ///< First row past it.
    std::uint32_t refWidth = 0;
    std::uint32_t refHeight = 0;

    /// Expresses the rectangle in a space of `width` by `height` pixels, in single precision:
    ///
    ///     left  = floor(left / refWidth * width + 0.1)    top    = the same, with the heights
    ///     right = ceil(right / refWidth * width - 0.1)    bottom = the same, with the heights
    ///
    /// at most 2^32 - 1 each. Does nothing when either space has no width or no height. Defined in
    /// the library of the scaler client, for use in there.
    void scale(unsigned int width, unsigned int height);
};

}  // namespace kvo::media::hardware
