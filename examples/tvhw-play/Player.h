#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>

#include "Clip.h"
#include "DisplayPorts.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"

namespace kvo::media::hardware::example {

/// Plays a clip through a decoder wrapper: one thread feeds coded frames, another drains pictures.
/// All operations are for the thread that constructs the player.
class Player {
public:
    enum class Mode {
        kPixel,  ///< Pictures are copied out, for the sink.
        kTunnel  ///< Pictures go to a display port.
    };

    struct Settings {
        Mode mode = Mode::kPixel;
        std::optional<Part> first;  ///< Played first, in place of the clip's own part.
        bool loop = false;          ///< Begins again at the end of the clip, until it is stopped.
        bool adaptive = false;      ///< Asks for a core for a stream whose picture size changes.
        bool inTime = false;        ///< Takes each picture at its time, not as soon as it comes.
        unsigned int limit = 0;     ///< Pictures after which pixel mode ends; 0: all.
        std::shared_ptr<DisplayPorts> ports;  ///< Where the pictures of tunnel mode go.
        /// Gets every picture of pixel mode, on the drain thread; its pts are microseconds. An
        /// error stops the player.
        std::function<Status(AVFrame const&)> sink;
    };

    /// What came of a player's work.
    struct Result {
        unsigned int frames = 0;
        Size size;  ///< Of the last picture.
        Status feed;
        Status drain;                  ///< That of the sink if it stopped the player.
        unsigned int wrongStamps = 0;  ///< Output buffers with another's port, id or process.
        unsigned int rendered = 0;     ///< Pictures reported as shown.
        unsigned int dropped = 0;      ///< Coded frames that the decoder made nothing of.
    };

    Player(Clip const& clip, Settings settings);
    /// Stops the threads and releases the decoder.
    ~Player() { stop(); }

    /// Acquires the resources and configures the decoder. Returns the wrapper's status.
    Status configure();

    /// Starts the threads, after configure() succeeded.
    void start();

    /// Tells the threads to end after the calls that they are in. May be called from any thread.
    void stop() { mStopping = true; }

    /// Returns whether both threads have ended, for which it waits a moment.
    [[nodiscard]] bool hasEnded() const;

    /// Returns how many pictures came out so far.
    [[nodiscard]] unsigned int frames() const { return mFrames; }

    /// Returns the time in the clip of the last picture that came out, in seconds.
    [[nodiscard]] double position() const { return static_cast<double>(mPositionUs) / 1e6; }

    /// Waits until `count` pictures came out. Returns false when the threads ended before that.
    bool waitForFrames(unsigned int count);

    /// Waits until both threads have ended, and calls `onProgress` with the pictures so far now and
    /// then. Throws what a thread threw: UnusableFile, or what the sink threw.
    Result finish(std::function<void(unsigned int)> const& onProgress);

    /// What the decoder was configured with, the granted resources among it.
    [[nodiscard]] Configuration const& granted() const { return mGranted; }

    /// The decoder, for calls of the caller's own.
    VideoDecoderClientWrapperResource& decoder() { return mDecoder; }

private:
    using Clock = std::chrono::steady_clock;

    Status run(Status (Player::*work)());
    Status feed();
    Status drainPixels();
    Status drainTunnel();
    [[nodiscard]] std::uint64_t timeOf(std::uint64_t timestampUs) const;
    void waitFor(std::uint64_t timestampUs);
    void countPicture(Size size, std::uint64_t timestampUs);

    template <typename Call>
    auto untilTaken(Call call) -> decltype(call());

    Clip const mClip;
    Settings const mSettings;
    VideoDecoderClientWrapperResource mDecoder;
    Configuration mGranted;
    std::atomic<bool> mStopping{false};
    std::atomic<unsigned int> mFrames{0};
    std::atomic<std::uint64_t> mPositionUs{0};
    Clock::time_point mClipBegan;  ///< The drain thread's: when time 0 of the clip was.
    Result mResult;                ///< The drain thread's until that has ended.
    // Last, so that the threads end before what they use.
    std::future<Status> mFeed;
    std::future<Status> mDrain;
};

}  // namespace kvo::media::hardware::example
