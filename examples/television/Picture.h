#pragma once

#include <vector>

#include "Libav.h"
#include "kvo/media/hardware/ColorAspect.h"
#include "kvo/media/hardware/PixelInfo.h"

namespace kvo::demo {

/// One decoded picture as a player gets it: planar YUV 4:2:0 with 8 bits a sample.
struct Picture {
    media::hardware::PixelInfo info;
    media::hardware::ColorAspect colors;
    std::vector<unsigned char> bytes;  ///< As `info` lays them out.
};

/// Returns how a picture of this size lies in memory; only the size, the planes and the length are
/// filled in.
media::hardware::PixelInfo planarLayout(int width, int height);

/// Copies a planar YUV 4:2:0 frame to `destination`, which `info` describes.
void copyPlanes(AVFrame const& frame, media::hardware::PixelInfo const& info,
                unsigned char* destination);

/// Returns the picture at `bytes`, which `info` describes, as a frame of libavcodec.
FramePtr toFrame(unsigned char const* bytes, media::hardware::PixelInfo const& info,
                 media::hardware::ColorAspect const& colors);

/// As above.
FramePtr toFrame(Picture const& picture);

/// Returns a planar YUV 4:2:0 frame as a picture with these colours.
Picture toPicture(AVFrame const& frame, media::hardware::ColorAspect const& colors);

/// A size in pixels.
struct Size {
    int width = 0;
    int height = 0;
};

/// Returns the largest even size of the same shape that is neither larger than `size` nor than
/// `limit`.
Size fitInto(Size size, Size limit);

}  // namespace kvo::demo
