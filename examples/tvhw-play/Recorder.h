#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ClipWriter.h"
#include "Player.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace kvo::media::hardware::example {

/// Plays a clip in pixel mode and encodes its pictures through an encoder wrapper. The encoding
/// runs on the player's drain thread. All operations are for the thread that constructs the
/// recorder.
class Recorder {
public:
    struct Settings {
        CodecType format = CodecType::AVC;  ///< AVC or VP8.
        std::string path;                   ///< Of the recording; empty: it is thrown away.
        unsigned int limit = 0;             ///< Pictures that are recorded; 0: all.
        bool loop = false;                  ///< Plays the clip again and again.
        bool isLive = false;                ///< The encoder keeps its core.
    };

    Recorder(Clip const& clip, Settings settings);

    /// Acquires an encoder core and configures the encoder. Returns the wrapper's status.
    Status configure();

    /// Starts to play and record, after configure() succeeded. Returns the status of the player's
    /// configuration; nothing is started when that failed.
    Status start();

    /// Ends the recording to the file, if it was begun, after the player has finished. Throws
    /// Failure on failure.
    void closeFile();

    Player& player() { return mPlayer; }

    /// The encoder, for calls of the caller's own.
    VideoEncoderClientWrapperResource& encoder() { return mEncoder; }

    /// Of the recording.
    [[nodiscard]] Size size() const { return mSize; }

private:
    Status record(AVFrame const& picture);
    Status begin(AVFrame const& picture);
    Status readCoded();

    Settings const mSettings;
    Size const mSize;
    int const mFrameRate;
    VideoEncoderClientWrapperResource mEncoder;

    // Used by the drain thread while the player runs.
    std::optional<ClipWriter> mFile;
    std::optional<std::int64_t> mLastUs;  ///< Time of the last picture.
    std::vector<unsigned char> mRaw;
    std::vector<unsigned char> mCoded;

    Player mPlayer;  ///< Last, since its thread uses all of the above.
};

}  // namespace kvo::media::hardware::example
