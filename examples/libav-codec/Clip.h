#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Libav.h"
#include "kvo/media/hardware/CodecType.h"

namespace kvo::media::hardware::example {

/// Returns the platform's name for a codec, or nothing when it does not know the codec.
std::optional<CodecType> codecTypeOf(AVCodecID id);

/// A part of a clip, in seconds of its time.
struct Part {
    double from = 0;
    double length = 0;  ///< 0: to the end.
};

/// The video of a file, one coded frame after the other. For one thread at a time.
class ClipReader {
public:
    /// Opens the file and finds its video, of which it reads `part`. Throws UnusableFile when there
    /// is no video that the library and libavcodec know, or the part cannot be reached.
    ClipReader(std::string path, Part part);

    /// Returns the next coded frame, or null at the end of the part. Throws UnusableFile when the
    /// file cannot be read on. The first ones may only lead to the part, from the last picture
    /// that decoding can start with: libavcodec gives no picture for those.
    PacketPtr next();

    /// Returns the time of a frame that next() returned, in microseconds from the clip's start.
    [[nodiscard]] unsigned long long timestampUs(AVPacket const& frame) const;

    [[nodiscard]] CodecType codecType() const { return mCodecType; }
    /// What libavcodec needs to know before the first frame.
    [[nodiscard]] AVCodecParameters const& parameters() const { return *mStream->codecpar; }
    /// Frames per second, rounded; 0 if unknown.
    [[nodiscard]] int frameRate() const;
    /// How long the whole clip is, in seconds; 0 if unknown.
    [[nodiscard]] double duration() const;
    /// The filters, each with a comma behind it, that turn a picture upright and give its pixels
    /// the shape that the file asks for.
    [[nodiscard]] std::string presentation() const;

private:
    [[nodiscard]] std::int64_t startTime() const;            ///< Of the clip, in units of mStream.
    [[nodiscard]] std::int64_t ticks(double seconds) const;  ///< In units of mStream.

    using FormatPtr = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;

    std::string const mPath;
    Part const mPart;
    FormatPtr mFormat;
    AVStream* mStream = nullptr;  ///< Part of *mFormat.
    CodecType mCodecType{};
    std::optional<std::int64_t> mFirstTime;  ///< Of the part, in units of mStream.
    bool mLastIsIncomplete = false;
};

/// What is known of a clip before it is played.
struct Clip {
    std::string path;
    Part part;  ///< What is played of it.
    std::string codecName;
    CodecType codecType{};
    Size coded;                     ///< Of the first picture, as it is coded.
    Size shown;                     ///< As `coded`, but turned as the file asks for.
    AVRational sampleAspect{1, 1};  ///< Width to height of a pixel of `shown`.
    int frameRate = 0;              ///< Per second; the usual one if unknown.
    double duration = 0;            ///< Of all of it, in seconds; 0 if unknown.
    unsigned int frames = 0;        ///< Pictures in what is played, where they were counted.
    unsigned int undecodable = 0;   ///< Coded frames that gave none.
};

/// Describes a part of a clip. Its pictures are counted by
/// decoding them with libavcodec alone, past the library and LibavDecoder, since
/// containers need not tell their number, and a coded frame need not hold a picture that is shown.
/// Calls `onProgress` with the count now and then; without it, looks at the first picture only.
/// Throws UnusableFile when the part holds no picture, or cannot be read to its end.
Clip inspectClip(std::string const& path, Part part,
                 std::function<void(unsigned int)> const& onProgress);

}  // namespace kvo::media::hardware::example
