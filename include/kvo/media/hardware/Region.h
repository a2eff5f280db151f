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

    /// Expresses the rectangle in a space of `width` by `height`. A start edge goes down and an end
    /// edge up to a whole pixel, so that the rectangle grows, but an edge that lies less than a
    /// tenth of a pixel from a whole one on its inner side goes there. Does nothing when either
    /// space has no width or no height. Defined in the library of the scaler client, for use in
    /// there.
    void scale(unsigned int width, unsigned int height);
};

}  // namespace kvo::media::hardware
