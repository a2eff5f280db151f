#include "PlanarPicture.h"

extern "C" {
#include <libavutil/imgutils.h>
}

namespace kvo::media::hardware::example {

namespace {

constexpr int kLineAlignment = 16;

}  // namespace

PixelInfo planarLayout(Size size) {
    PixelInfo info;
    info.width = size.width;
    info.height = size.height;
    for (int const divisor : {1, 2, 2}) {
        int const width = (size.width + divisor - 1) / divisor;
        int const height = (size.height + divisor - 1) / divisor;
        PixelInfo::Plane plane;
        plane.offset = info.length;
        plane.stride = static_cast<std::uint32_t>(FFALIGN(width, kLineAlignment));
        plane.lines = static_cast<std::uint32_t>(height);
        info.length += plane.stride * plane.lines;
        info.planes.push_back(plane);
    }
    return info;
}

void copyPlanes(AVFrame const& picture, unsigned char* destination) {
    PixelInfo const info = planarLayout({picture.width, picture.height});
    av_image_copy_to_buffer(destination, static_cast<int>(info.length), picture.data,
                            picture.linesize, AV_PIX_FMT_YUV420P, picture.width, picture.height,
                            kLineAlignment);
}

void showPlanes(AVFrame& frame, unsigned char* bytes, PixelInfo const& info) {
    frame.format = AV_PIX_FMT_YUV420P;
    frame.width = info.width;
    frame.height = info.height;
    for (std::size_t index = 0; index < info.planes.size(); ++index) {
        frame.data[index] = bytes + info.planes[index].offset;
        frame.linesize[index] = static_cast<int>(info.planes[index].stride);
    }
}

ColorAspect colorsOf(AVFrame const& picture) {
    return {picture.color_primaries, picture.color_trc, picture.colorspace,
            picture.color_range == AVCOL_RANGE_JPEG ? 1 : 0};
}

}  // namespace kvo::media::hardware::example
