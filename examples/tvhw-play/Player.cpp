#include "Player.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "LibavDecoder.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::example {

namespace {

/// How long a thread waits before it asks the decoder again. No call wakes it: a codec has none to
/// wait in, and a reclaim wakes nobody.
constexpr std::chrono::microseconds kRetryAfter{200};

constexpr std::chrono::milliseconds kProgressEvery{100};

/// A player sleeps no longer without seeing whether it is to stop.
constexpr std::chrono::milliseconds kLongestSleep{50};

/// Times of pictures that lie further apart do not tell when to show the later one.
constexpr std::chrono::duration<std::uint64_t, std::micro> kLongestGap{10'000'000};

bool isDone(std::future<Status> const& thread, std::chrono::microseconds wait) {
    return thread.wait_for(wait) == std::future_status::ready;
}

std::shared_ptr<LibavDecoder> makeDecoder(Clip const& clip, std::shared_ptr<DisplayPorts> ports) {
    ClipReader const reader(clip.path, clip.part);
    return std::make_shared<LibavDecoder>(reader.parameters(), reader.presentation(),
                                          std::move(ports));
}

}  // namespace

Player::Player(Clip const& clip, Settings settings)
    : mClip(clip), mSettings(std::move(settings)), mDecoder(makeDecoder(clip, mSettings.ports)) {}

Status Player::configure() {
    Configuration config;
    config.setInt32(key::kWidth, mClip.coded.width);
    config.setInt32(key::kHeight, mClip.coded.height);
    config.setInt32(key::kFrameRate, mClip.frameRate);
    config.setInt32(key::kCallingPid, getpid());
    if (mSettings.adaptive) {
        config.setInt32(key::kAdaptiveEnable, 1);
        config.setInt32(key::kAdaptiveMaxWidth, mClip.coded.width);
        config.setInt32(key::kAdaptiveMaxHeight, mClip.coded.height);
    }
    Status const result = mSettings.mode == Mode::kPixel
                              ? mDecoder.configurePixelMode(mClip.codecType, config).status()
                              : mDecoder.configureTunnelMode(mClip.codecType, config).status();
    if (result.isError()) {
        return result;
    }
    Return<Configuration> const granted = mDecoder.getConfiguration();
    mGranted = granted.value();
    return granted.status();  // The core may be lost already.
}

void Player::start() {
    auto const drain = mSettings.mode == Mode::kPixel ? &Player::drainPixels : &Player::drainTunnel;
    mFeed = std::async(std::launch::async, &Player::run, this, &Player::feed);
    mDrain = std::async(std::launch::async, &Player::run, this, drain);
}

bool Player::hasEnded() const { return isDone(mFeed, kRetryAfter) && isDone(mDrain, kRetryAfter); }

bool Player::waitForFrames(unsigned int count) {
    while (mFrames < count && !isDone(mDrain, kRetryAfter)) {
    }
    return mFrames >= count;
}

Player::Result Player::finish(std::function<void(unsigned int)> const& onProgress) {
    while (!isDone(mFeed, kProgressEvery) || !isDone(mDrain, kProgressEvery)) {
        onProgress(mFrames);
    }
    Status const fed = mFeed.get();
    mResult.drain = mDrain.get();
    mResult.feed = fed;
    mResult.frames = mFrames;
    mResult.dropped = mDecoder.getFrameInfo().value().droppedFrames;
    return mResult;
}

/// Makes a call of the decoder until it is taken or fails, or fails for it when the player stops.
template <typename Call>
auto Player::untilTaken(Call call) -> decltype(call()) {
    while (!mStopping) {
        auto result = call();
        if (result.status().code() != codec_status::kTryAgain.code()) {
            return result;
        }
        std::this_thread::sleep_for(kRetryAfter);
    }
    return codec_status::kTryAgain;
}

/// The body of a thread: does `work`, and ends the other thread too when that throws or fails. A
/// lost core does not count: the other thread is refused as well, and its answer is of interest.
Status Player::run(Status (Player::*work)()) {
    try {
        Status const outcome = (this->*work)();
        if (outcome.code() == codec_status::kTryAgain.code()) {
            return status::kSuccess;  // It was told to stop.
        }
        if (outcome.isError() && outcome.code() != status::kReclaimed.code()) {
            mStopping = true;
        }
        return outcome;
    } catch (...) {
        mStopping = true;
        throw;
    }
}

Status Player::feed() {
    auto reader = std::make_unique<ClipReader>(mClip.path, mSettings.first.value_or(mClip.part));
    for (;;) {
        PacketPtr const packet = reader->next();
        if (packet == nullptr && !mSettings.loop) {
            return untilTaken([&] { return mDecoder.writeInputEndOfStream(); }).status();
        }
        if (packet == nullptr) {
            reader = std::make_unique<ClipReader>(mClip.path, mClip.part);
            continue;
        }
        Status const result =
            untilTaken([&] {
                return mDecoder.writeInputFrame(static_cast<unsigned int>(packet->flags),
                                                reader->timestampUs(*packet), packet->data,
                                                static_cast<unsigned int>(packet->size));
            }).status();
        if (result.isError()) {
            return result;
        }
    }
}

Status Player::drainPixels() {
    for (;;) {
        Return<PixelInfo> next = untilTaken([&] { return mDecoder.dequeuePixelBuffer(); });
        PixelInfo& info = next.value();
        if (next.status().isError() || info.endOfStream != 0) {
            return next.status();
        }
        FramePtr const picture(av_frame_alloc());
        picture->buf[0] = av_buffer_alloc(info.length);
        require(picture->buf[0] != nullptr, "no memory for a picture");
        showPlanes(*picture, picture->buf[0]->data, {info.width, info.height});
        setColors(*picture, mDecoder.getColorAspect().value());
        picture->sample_aspect_ratio = mClip.sampleAspect;
        std::uint64_t const time = timeOf(info.timestampUs);
        picture->pts = static_cast<std::int64_t>(time);
        Status result =
            mDecoder.copyFromPixelBuffer(picture->buf[0]->data, info.length, info).status();
        if (!result.isError()) {
            result = mDecoder.releasePixelBuffer(info).status();
        }
        if (result.isError()) {
            return result;
        }
        waitFor(time);
        result = mSettings.sink ? mSettings.sink(*picture) : status::kSuccess;
        if (!result.isError()) {
            countPicture({info.width, info.height}, time);
        }
        if (result.isError() || mFrames == mSettings.limit) {
            mStopping = true;  // Whatever the error: this decoder's core is not lost.
            return result;
        }
    }
}

Status Player::drainTunnel() {
    for (;;) {
        Return<BufferInfo> const next = untilTaken([&] { return mDecoder.dequeueOutputBuffer(); });
        BufferInfo const& buffer = next.value();
        if (next.status().isError() || buffer.endOfStream != 0) {
            return next.status();
        }
        bool const isOurs = buffer.videoPort == mGranted.getInt32(key::kVideoPort, -1) &&
                            buffer.resourceId == mGranted.getInt32(key::kResourceId, -1) &&
                            buffer.callingPid == getpid();
        std::uint64_t const time = timeOf(buffer.timestampUs);
        waitFor(time);
        Status const released = mDecoder.releaseOutputBuffer(buffer).status();
        if (released.isError()) {
            return released;
        }
        mResult.wrongStamps += isOurs ? 0U : 1U;
        mResult.rendered += mDecoder.dequeueRenderEvent().status().isError() ? 0U : 1U;
        countPicture({buffer.width, buffer.height}, time);
    }
}

/// Returns the time of a picture. One of a stream without times, whose pictures are all of time 0,
/// follows on the one before it.
std::uint64_t Player::timeOf(std::uint64_t timestampUs) const {
    bool const isTimed = timestampUs != 0 || mFrames == 0;
    auto const rate = static_cast<std::uint64_t>(mClip.frameRate);
    return isTimed ? timestampUs : mPositionUs + 1'000'000 / rate;
}

/// Waits until the time of a picture, where the player is to keep to it. The clip's time begins
/// with the first picture, and anew where it jumps.
void Player::waitFor(std::uint64_t timestampUs) {
    if (!mSettings.inTime) {
        return;
    }
    Clock::time_point const now = Clock::now();
    Clock::time_point due = mClipBegan + std::chrono::microseconds(timestampUs);
    bool const jumps = timestampUs < mPositionUs || timestampUs - mPositionUs > kLongestGap.count();
    if (mFrames == 0 || jumps) {
        mClipBegan = now - std::chrono::microseconds(timestampUs);
        due = now;
    }
    while (!mStopping && Clock::now() < due) {
        std::this_thread::sleep_until(std::min(due, Clock::now() + kLongestSleep));
    }
}

void Player::countPicture(Size size, std::uint64_t timestampUs) {
    mResult.size = size;
    mPositionUs = timestampUs;
    ++mFrames;
}

}  // namespace kvo::media::hardware::example
