#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "kvo/media/hardware/ColorAspect.h"
#include "kvo/media/hardware/PixelInfo.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
}

/// What all users of the libav libraries share.
namespace kvo::media::hardware::example {

/// Deletes an object with a function that takes the address of the pointer to it.
template <auto kFree>
struct FreeByAddress {
    template <typename T>
    void operator()(T* object) const {
        kFree(&object);
    }
};

using CodecContextPtr = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using CodecParametersPtr =
    std::unique_ptr<AVCodecParameters, FreeByAddress<avcodec_parameters_free>>;
using FramePtr = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using PacketPtr = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;

inline constexpr AVRational kMicroseconds{1, 1'000'000};

/// The file is of no use: the user's to put right.
class UnusableFile : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The library, the platform or a library of libav did not do what it should.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws Failure with `expectation` unless `condition` holds.
void require(bool condition, std::string const& expectation);

/// Returns what an error code of the libav libraries means.
std::string errorText(int code);

/// Returns `result` when it is not an error of the libav libraries; otherwise throws Failure
/// with `what` and the error's meaning.
int requireLibav(int result, std::string const& what);

/// A size in pixels, or the shape of a picture.
struct Size {
    int width = 0;
    int height = 0;
};

/// Returns the largest even size within `limit` that has the shape of `shape`.
Size fitInto(Size shape, Size limit);

/// Returns the shape in which a picture is to be seen.
Size shapeOf(AVFrame const& picture);

/// Returns the first picture that `filters`, in the language of libavfilter, make of the pictures,
/// which are the filters' inputs [in0], [in1] and so on. A large picture that does not describe its
/// colours is taken to be in those of HDTV. Throws Failure where that cannot be done.
FramePtr filtered(std::vector<AVFrame const*> const& pictures, std::string const& filters);

/// Writes a picture of any format as a PNG file. Throws Failure, and leaves no part of a file,
/// where that fails.
void writePng(std::string const& path, AVFrame const& picture);

// Pictures as the codecs exchange them with their callers: planar YUV 4:2:0, 8 bits a sample.

/// Returns how a picture of this size lies in memory; only the size, the planes and the length are
/// filled in.
PixelInfo planarLayout(Size size);

/// Copies a picture to `destination`, as planarLayout() says.
void copyPlanes(AVFrame const& picture, unsigned char* destination);

/// Lets `frame` refer to the picture of this size at `bytes`, which must outlive it.
void showPlanes(AVFrame& frame, unsigned char const* bytes, Size size);

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
