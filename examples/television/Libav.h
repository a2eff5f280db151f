#pragma once

#include <memory>
#include <stdexcept>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

/// What all users of libavformat, libavcodec and libswscale share.
namespace kvo::demo {

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

/// The demo cannot do its work with this file: the user's to put right.
class UnusableFile : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The library or the platform did not do what the demo is there to show.
class DemoFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws DemoFailure with `expectation` unless `condition` holds.
inline void require(bool condition, std::string const& expectation) {
    if (!condition) {
        throw DemoFailure(expectation);
    }
}

/// Returns what an error code of the libav libraries means.
std::string errorText(int code);

/// Returns `result` when it is not an error of the libav libraries; otherwise throws DemoFailure
/// with `what` and the error's meaning.
int requireLibav(int result, std::string const& what);

/// Returns a copy of the parameters.
CodecParametersPtr copyOf(AVCodecParameters const& parameters);

/// Returns a picture of this format and size with undefined content.
FramePtr allocateFrame(AVPixelFormat format, int width, int height);

/// Returns `from` in another format and size. The matrix and the range of its colours stay as they
/// are, but for RGB, which has the full range. Throws DemoFailure where that cannot be done.
FramePtr convertFrame(AVFrame const& from, AVPixelFormat format, int width, int height);

}  // namespace kvo::demo
