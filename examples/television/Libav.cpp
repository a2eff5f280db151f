#include "Libav.h"

#include <array>

extern "C" {
#include <libswscale/swscale.h>
}

namespace kvo::demo {

namespace {

/// Lines from which on an undescribed picture is taken to be in the colours of HDTV.
constexpr int kHighDefinitionLines = 720;

constexpr int kFixedPointOne = 1 << 16;

using ScalerPtr = std::unique_ptr<SwsContext, decltype(&sws_freeContext)>;

int const* matrixOf(AVFrame const& frame) {
    if (frame.colorspace == AVCOL_SPC_UNSPECIFIED && frame.height >= kHighDefinitionLines) {
        return sws_getCoefficients(SWS_CS_ITU709);
    }
    return sws_getCoefficients(frame.colorspace);
}

}  // namespace

std::string errorText(int code) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

int requireLibav(int result, std::string const& what) {
    if (result < 0) {
        throw DemoFailure(what + ": " + errorText(result));
    }
    return result;
}

CodecParametersPtr copyOf(AVCodecParameters const& parameters) {
    CodecParametersPtr copy(avcodec_parameters_alloc());
    requireLibav(avcodec_parameters_copy(copy.get(), &parameters), "cannot copy codec parameters");
    return copy;
}

FramePtr allocateFrame(AVPixelFormat format, int width, int height) {
    FramePtr frame(av_frame_alloc());
    frame->format = format;
    frame->width = width;
    frame->height = height;
    requireLibav(av_frame_get_buffer(frame.get(), 0), "no memory for a picture");
    return frame;
}

FramePtr convertFrame(AVFrame const& from, AVPixelFormat format, int width, int height) {
    ScalerPtr const scaler(
        sws_getContext(from.width, from.height, static_cast<AVPixelFormat>(from.format), width,
                       height, format, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr),
        &sws_freeContext);
    require(scaler != nullptr, "libswscale cannot convert a picture of this format");
    FramePtr to = allocateFrame(format, width, height);
    requireLibav(av_frame_copy_props(to.get(), &from), "cannot copy picture properties");
    int const fullRange = from.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
    // Fails where there is nothing to convert, which is as well.
    sws_setColorspaceDetails(scaler.get(), matrixOf(from), fullRange, matrixOf(from), fullRange, 0,
                             kFixedPointOne, kFixedPointOne);
    requireLibav(
        sws_scale(scaler.get(), from.data, from.linesize, 0, from.height, to->data, to->linesize),
        "cannot convert a picture");
    return to;
}

}  // namespace kvo::demo
