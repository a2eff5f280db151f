#include "Playback.h"

#include <filesystem>
#include <utility>

#include "fmt/core.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::example {

namespace {

/// How long one that insists leaves a core to the player that took it.
constexpr std::chrono::seconds kAskAgainAfter{1};

}  // namespace

Playback::Playback(std::string const& path, Settings settings)
    : mSettings(std::move(settings)),
      mClip(inspectClip(path, mSettings.part, nullptr)),
      mName(std::filesystem::path(path).filename()),
      mPosition(mSettings.part.from) {
    if (mSettings.channel) {
        host::Panel const panel = host::panel();
        mVideo.emplace(*mSettings.channel, Size{panel.width, panel.height}, mSettings.player.ports);
    }
}

std::string Playback::goOn() {
    try {
        if (mState == State::kWaiting && Clock::now() >= mAskAt) {
            return ask();
        }
        if (mState == State::kPlaying && player()->hasEnded()) {
            placeWindow();
            return finish();
        }
        placeWindow();
        return {};
    } catch (...) {
        mState = State::kFailed;
        throw;
    }
}

/// Asks for a core and plays from where the last player ended.
std::string Playback::ask() {
    Status configured;
    if (!mSettings.recording.empty()) {
        bool const isWebm = std::filesystem::path(mSettings.recording).extension() == ".webm";
        mRecorder = std::make_unique<Recorder>(
            mClip, Recorder::Settings{isWebm ? CodecType::VP8 : CodecType::AVC, mSettings.recording,
                                      0, mSettings.player.loop, mSettings.keepsEncoder});
        configured = mRecorder->configure();
        if (configured.code() == status::kResourceFailed.code()) {
            return leaveWith(
                State::kRefused,
                fmt::format("no encoder core was granted for {} of {}x{}", isWebm ? "vp8" : "h264",
                            mRecorder->size().width, mRecorder->size().height));
        }
    } else {
        Player::Settings settings = mSettings.player;
        Part& rest = settings.first.emplace(mSettings.part);
        rest.from = mPosition;
        rest.length -= rest.length > 0 ? mPosition - mSettings.part.from : 0;
        bool const isDone = mSettings.part.length > 0 && rest.length <= 0;
        if (isDone && !settings.loop) {
            return leaveWith(State::kEnded, "ended, as nothing was left to play");
        }
        if (isDone) {
            settings.first.reset();
        }
        mPlayer = std::make_unique<Player>(mClip, std::move(settings));
        configured = mPlayer->configure();
    }
    if (!configured.isError() && mRecorder) {
        configured = mRecorder->start();
    }
    if (configured.code() == status::kReclaimed.code()) {
        return leaveWith(State::kLost, "lost its core before it played");
    }
    if (configured.isError()) {
        bool const isRefused = configured.code() == status::kResourceFailed.code();
        return leaveWith(isRefused ? State::kRefused : State::kFailed,
                         isRefused
                             ? fmt::format("no core was granted for {} of {}x{}", mClip.codecName,
                                           mClip.coded.width, mClip.coded.height)
                             : fmt::format("configuring it failed: status {}", configured.code()));
    }
    Configuration const& granted = player()->granted();
    int const port = granted.getInt32(key::kVideoPort, -1);
    if (mPlayer && mSettings.player.mode == Player::Mode::kTunnel && port < 0) {
        return leaveWith(State::kRefused, "no display port was granted");
    }
    if (mPlayer) {
        if (mVideo) {
            mVideo->connect(*mPlayer, mSettings.player.adaptive);
            mShape = {};
        }
        mPlayer->start();
    }
    mState = State::kPlaying;
    return fmt::format("plays on a core of type {}{}", granted.getInt32(key::kResourceCoreType, 0),
                       port < 0 ? "" : fmt::format(" and display port {}", port));
}

/// Tells what became of a player whose threads have ended.
std::string Playback::finish() {
    Player::Result const result = player()->finish([](unsigned int) {});
    if (mRecorder) {
        mRecorder->closeFile();
    }
    mFrames += result.frames;
    mPosition = result.frames > 0 ? player()->position() : mPosition;
    std::string const after = fmt::format("at {:.1f} s, after {} pictures", mPosition, mFrames);
    for (Status const& status : {result.feed, result.drain}) {
        if (status.code() == status::kReclaimed.code()) {
            return leaveWith(State::kLost, "lost its core " + after);
        }
    }
    for (Status const& status : {result.feed, result.drain}) {
        if (status.isError()) {
            return leaveWith(State::kFailed,
                             fmt::format("failed with status {} {}", status.code(), after));
        }
    }
    return leaveWith(State::kEnded, "ended " + after);
}

/// Gives back what is held. One that insists is to ask for it again.
std::string Playback::leaveWith(State state, std::string const& what) {
    giveBack();
    bool const asksAgain = mSettings.insists && (state == State::kLost || state == State::kRefused);
    mState = asksAgain ? State::kWaiting : state;
    mAskAt = Clock::now() + kAskAgainAfter;
    return what + (asksAgain ? "; asks again in a second" : "");
}

std::string Playback::end() {
    mSettings.insists = false;
    if (mState != State::kPlaying) {
        return leaveWith(State::kEnded, "ended before it played on");
    }
    player()->stop();
    return finish();
}

void Playback::giveBack() {
    if (mState == State::kPlaying && mSettings.beforeRelease) {
        mSettings.beforeRelease();
    }
    if (mState == State::kPlaying && mVideo) {
        mVideo->disconnect();
    }
    mPlayer.reset();
    mRecorder.reset();
}

/// Gives the window the shape of the picture, which may change on the way.
void Playback::placeWindow() {
    if (mState != State::kPlaying || !mVideo) {
        return;
    }
    FramePtr const picture = mSettings.player.ports->picture(mVideo->port());
    Size const shape = picture == nullptr ? Size{} : shapeOf(*picture);
    if (picture != nullptr && (shape.width != mShape.width || shape.height != mShape.height)) {
        host::Panel const panel = host::panel();
        mVideo->place(mSettings.window, {0, 0, panel.width, panel.height});
        mShape = shape;
    }
}

std::string Playback::progress() const {
    if (mState == State::kWaiting) {
        return mName + ": waits for a core";
    }
    double const position = player() == nullptr ? mPosition : player()->position();
    unsigned int const frames = mFrames + (player() == nullptr ? 0 : player()->frames());
    std::string const of = mClip.duration > 0 ? fmt::format(" of {:.1f}", mClip.duration) : "";
    return fmt::format("{}: {:.1f}{} s, {} pictures", mName, position, of, frames);
}

}  // namespace kvo::media::hardware::example
