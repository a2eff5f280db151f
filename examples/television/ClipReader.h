#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Libav.h"
#include "kvo/media/hardware/CodecType.h"

namespace kvo::demo {

/// Returns the platform's name for a codec, or nothing when it does not know the codec.
std::optional<media::hardware::CodecType> codecTypeOf(AVCodecID id);

/// The video of a file, one coded frame after the other. For one thread at a time.
class ClipReader {
public:
    /// Opens the file and finds its video. Throws UnusableFile when there is none that the library
    /// and libavcodec know.
    explicit ClipReader(std::string path);

    /// Returns the next coded frame, or null at the end of the clip. Throws UnusableFile when the
    /// file cannot be read on.
    PacketPtr next();

    /// Returns the time of a frame that next() returned, in microseconds from the clip's start.
    [[nodiscard]] unsigned long long timestampUs(AVPacket const& frame) const;

    [[nodiscard]] media::hardware::CodecType codecType() const { return mCodecType; }
    /// What libavcodec needs to know before the first frame.
    [[nodiscard]] AVCodecParameters const& parameters() const { return *mStream->codecpar; }
    /// Frames per second, rounded; 0 if unknown.
    [[nodiscard]] int frameRate() const;

private:
    using FormatPtr = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;

    std::string mPath;
    FormatPtr mFormat;
    AVStream* mStream = nullptr;  ///< Part of *mFormat.
    media::hardware::CodecType mCodecType{};
    bool mLastIsIncomplete = false;
};

/// What is known of a clip before it is played.
struct Clip {
    std::string path;
    std::string codecName;
    media::hardware::CodecType codecType{};
    int width = 0;   ///< Of the first picture, in pixels.
    int height = 0;  ///< As width.
    int frameRate = 0;
    unsigned int frames = 0;  ///< Pictures in the file.
};

/// Describes the clip. Its pictures are counted by decoding all of it with libavcodec alone, past
/// the library and the demo's own decoder, since containers need not tell their number, and a coded
/// frame need not hold a picture that is shown. Calls `onProgress` with the count now and then.
/// Throws UnusableFile when the file holds no picture, or cannot be read to its end.
Clip inspectClip(std::string const& path, std::function<void(unsigned int)> const& onProgress);

}  // namespace kvo::demo
