#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

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

/// Returns the first picture that `filters`, in the language of libavfilter, make of the pictures,
/// which are the filters' inputs [in0], [in1] and so on. A large picture that does not describe its
/// colours is taken to be in those of HDTV. Throws Failure where that cannot be done.
FramePtr filtered(std::vector<AVFrame const*> const& pictures, std::string const& filters);

/// Writes a picture of any format as a PNG file. Throws Failure, and leaves no file, where that
/// fails.
void writePng(std::string const& path, AVFrame const& picture);

}  // namespace kvo::media::hardware::example
