#pragma once

#include "Clip.h"
#include "Libav.h"
#include "kvo/media/hardware/ColorAspect.h"
#include "kvo/media/hardware/PixelInfo.h"

/// Pictures as the codecs exchange them with their callers: planar YUV 4:2:0, 8 bits a sample.
namespace kvo::media::hardware::example {

/// Returns how a picture of this size lies in memory; only the size, the planes and the length are
/// filled in.
PixelInfo planarLayout(Size size);

/// Copies a picture to `destination`, as planarLayout() says.
void copyPlanes(AVFrame const& picture, unsigned char* destination);

/// Lets `frame` refer to the picture at `bytes`, which must outlive it.
void showPlanes(AVFrame& frame, unsigned char* bytes, PixelInfo const& info);

/// Returns the colours of a picture.
ColorAspect colorsOf(AVFrame const& picture);

/// Gives a frame or a codec these colours.
template <typename Described>
void setColors(Described& described, ColorAspect const& colors) {
    described.color_primaries = static_cast<AVColorPrimaries>(colors.primaries);
    described.color_trc = static_cast<AVColorTransferCharacteristic>(colors.transfer);
    described.colorspace = static_cast<AVColorSpace>(colors.matrix);
    described.color_range = colors.fullRange != 0 ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

}  // namespace kvo::media::hardware::example
