#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Libav.h"
#include "kvo/media/hardware/CodecType.h"

namespace kvo::media::hardware::demo {

/// A size in pixels, or the shape of a picture.
struct Size {
    int width = 0;
    int height = 0;
};

/// Returns the largest even size within `limit` that has the shape of `shape`.
Size fitInto(Size shape, Size limit);

/// Returns the shape in which a picture is to be seen.
Size shapeOf(AVFrame const& picture);

/// Returns the platform's name for a codec, or nothing when it does not know the codec.
std::optional<CodecType> codecTypeOf(AVCodecID id);

/// The video of a file, one coded frame after the other. For one thread at a time.
class ClipReader {
public:
    /// Opens the file and finds its video, of which it reads the first `seconds`, or all if that is
    /// 0. Throws UnusableFile when there is no video that the library and libavcodec know.
    ClipReader(std::string path, unsigned int seconds);

    /// Returns the next coded frame, or null at the end of the clip. Throws UnusableFile when the
    /// file cannot be read on.
    PacketPtr next();

    /// Returns the time of a frame that next() returned, in microseconds from the clip's start.
    [[nodiscard]] unsigned long long timestampUs(AVPacket const& frame) const;

    [[nodiscard]] CodecType codecType() const { return mCodecType; }
    /// What libavcodec needs to know before the first frame.
    [[nodiscard]] AVCodecParameters const& parameters() const { return *mStream->codecpar; }
    /// Frames per second, rounded; 0 if unknown.
    [[nodiscard]] int frameRate() const;
    /// The filters, each with a comma behind it, that turn a picture upright and give its pixels
    /// the shape that the file asks for.
    [[nodiscard]] std::string presentation() const;

private:
    using FormatPtr = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;

    std::string const mPath;
    unsigned int const mSeconds;
    FormatPtr mFormat;
    AVStream* mStream = nullptr;  ///< Part of *mFormat.
    CodecType mCodecType{};
    std::optional<std::int64_t> mFirstTime;  ///< In units of mStream.
    bool mLastIsIncomplete = false;
};

/// What is known of a clip before it is played.
struct Clip {
    std::string path;
    unsigned int seconds = 0;  ///< What is played of it; 0: all.
    std::string codecName;
    CodecType codecType{};
    Size coded;                     ///< Of the first picture, as it is coded.
    Size shown;                     ///< As `coded`, but turned as the file asks for.
    AVRational sampleAspect{1, 1};  ///< Width to height of a pixel of `shown`.
    int frameRate = 0;              ///< Per second; 0 if unknown.
    unsigned int frames = 0;        ///< Pictures in what is played.
    unsigned int undecodable = 0;   ///< Coded frames that gave none.
};

/// Describes the first `seconds` of a clip, or all of it if that is 0. Its pictures are counted by
/// decoding them with libavcodec alone, past the library and the demo's own decoder, since
/// containers need not tell their number, and a coded frame need not hold a picture that is shown.
/// Calls `onProgress` with the count now and then. Throws UnusableFile when the file holds no
/// picture, or cannot be read to its end.
Clip inspectClip(std::string const& path, unsigned int seconds,
                 std::function<void(unsigned int)> const& onProgress);

}  // namespace kvo::media::hardware::demo
