#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Panel.h"
#include "Player.h"
#include "Recorder.h"

namespace kvo::media::hardware::example {

/// A file that is played: from the first request for a core to its end, however often the core is
/// lost on the way. All operations are for one thread, and none waits for the end of anything but
/// a request.
class Playback {
public:
    struct Settings {
        Player::Settings player;
        Part part;
        bool insists = false;                 ///< Asks again for a core that is refused or lost.
        std::optional<unsigned int> channel;  ///< The scaler's, for tunnel mode.
        Window window;                        ///< Of that channel, in pixels of the panel.
        std::function<void()> beforeRelease;  ///< Called while the last picture is still shown.
        std::string recording;                ///< A file for the pictures, encoded; empty: none.
        bool keepsEncoder = false;            ///< The recording's encoder refuses a reclaim.
    };

    enum class State {
        kWaiting,  ///< To ask for a core.
        kPlaying,
        kEnded,
        kLost,     ///< Another player has the core.
        kRefused,  ///< No core was granted.
        kFailed    ///< The last, as the others before it are less.
    };

    /// Throws UnusableFile when there is nothing to play in the file.
    Playback(std::string const& path, Settings settings);

    /// Goes on as far as it can without waiting. Returns what there is to tell of, mostly nothing.
    /// Throws UnusableFile and Failure, after which the playback is over.
    std::string goOn();

    /// Ends the playing before its time, as goOn() does at the end.
    std::string end();

    [[nodiscard]] State state() const { return mState; }
    [[nodiscard]] bool isOver() const { return mState > State::kPlaying; }
    [[nodiscard]] std::string const& name() const { return mName; }

    /// Returns how far the playing is.
    [[nodiscard]] std::string progress() const;

private:
    using Clock = std::chrono::steady_clock;

    std::string ask();
    std::string finish();
    std::string leaveWith(State state, std::string const& what);
    void giveBack();
    void placeWindow();
    Player* player() const { return mRecorder ? &mRecorder->player() : mPlayer.get(); }

    Settings mSettings;
    Clip const mClip;
    std::string const mName;
    State mState = State::kWaiting;
    Clock::time_point mAskAt;  ///< When waiting.
    double mPosition = 0;      ///< Seconds of the clip.
    unsigned int mFrames = 0;  ///< Of the players before this one.
    std::optional<VideoWindow> mVideo;
    Size mShape;  ///< Of the picture that the window was placed for.
    std::unique_ptr<Player> mPlayer;
    std::unique_ptr<Recorder> mRecorder;  ///< In place of mPlayer.
};

}  // namespace kvo::media::hardware::example
