#include "Picture.h"

#include <algorithm>
#include <cstddef>

namespace kvo::demo {

using media::hardware::ColorAspect;
using media::hardware::PixelInfo;

namespace {

constexpr int kLineAlignment = 16;

int halved(int size) { return (size + 1) / 2; }

/// Bytes of one line that carry samples.
int lineLength(PixelInfo const& info, std::size_t plane) {
    return plane == 0 ? info.width : halved(info.width);
}

}  // namespace

PixelInfo planarLayout(int width, int height) {
    PixelInfo info;
    info.width = width;
    info.height = height;
    for (int const divisor : {1, 2, 2}) {
        int const planeWidth = divisor == 1 ? width : halved(width);
        int const planeHeight = divisor == 1 ? height : halved(height);
        PixelInfo::Plane plane;
        plane.offset = info.length;
        plane.stride = static_cast<std::uint32_t>(FFALIGN(planeWidth, kLineAlignment));
        plane.lines = static_cast<std::uint32_t>(planeHeight);
        info.length += plane.stride * plane.lines;
        info.planes.push_back(plane);
    }
    return info;
}

void copyPlanes(AVFrame const& frame, PixelInfo const& info, unsigned char* destination) {
    for (std::size_t index = 0; index < info.planes.size(); ++index) {
        PixelInfo::Plane const& plane = info.planes[index];
        av_image_copy_plane(destination + plane.offset, static_cast<int>(plane.stride),
                            frame.data[index], frame.linesize[index], lineLength(info, index),
                            static_cast<int>(plane.lines));
    }
}

FramePtr toFrame(unsigned char const* bytes, PixelInfo const& info, ColorAspect const& colors) {
    FramePtr frame = allocateFrame(AV_PIX_FMT_YUV420P, info.width, info.height);
    for (std::size_t index = 0; index < info.planes.size(); ++index) {
        PixelInfo::Plane const& plane = info.planes[index];
        av_image_copy_plane(frame->data[index], frame->linesize[index], bytes + plane.offset,
                            static_cast<int>(plane.stride), lineLength(info, index),
                            static_cast<int>(plane.lines));
    }
    frame->color_primaries = static_cast<AVColorPrimaries>(colors.primaries);
    frame->color_trc = static_cast<AVColorTransferCharacteristic>(colors.transfer);
    frame->colorspace = static_cast<AVColorSpace>(colors.matrix);
    frame->color_range = colors.fullRange != 0 ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    return frame;
}

FramePtr toFrame(Picture const& picture) {
    return toFrame(picture.bytes.data(), picture.info, picture.colors);
}

Picture toPicture(AVFrame const& frame, ColorAspect const& colors) {
    Picture picture;
    picture.info = planarLayout(frame.width, frame.height);
    picture.colors = colors;
    picture.bytes.resize(picture.info.length);
    copyPlanes(frame, picture.info, picture.bytes.data());
    return picture;
}

Size fitInto(Size size, Size limit) {
    double const scale = std::min({1.0, static_cast<double>(limit.width) / size.width,
                                   static_cast<double>(limit.height) / size.height});
    auto const even = [scale](int length) {
        return std::max(2, static_cast<int>(length * scale) / 2 * 2);
    };
    return {even(size.width), even(size.height)};
}

}  // namespace kvo::demo
