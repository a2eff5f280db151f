#include "Player.h"

#include <unistd.h>

#include <chrono>
#include <utility>

#include "LibavDecoder.h"
#include "PlanarPicture.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::demo {

namespace {

/// How long a thread waits for the other to make room, before it asks the decoder again. A reclaim
/// wakes nobody, so the wait must be bounded.
constexpr std::chrono::milliseconds kRetryAfter{10};

constexpr std::chrono::milliseconds kProgressEvery{100};

std::shared_ptr<LibavDecoder> makeDecoder(Clip const& clip, std::shared_ptr<DisplayPorts> ports) {
    ClipReader const reader(clip.path, clip.seconds);
    return std::make_shared<LibavDecoder>(reader.parameters(), reader.presentation(),
                                          std::move(ports));
}

}  // namespace

Player::Player(Clip const& clip, Settings settings)
    : mClip(clip), mSettings(std::move(settings)), mDecoder(makeDecoder(clip, mSettings.ports)) {}

Player::~Player() { stop(); }

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
    if (!result.isError()) {
        mGranted = mDecoder.getConfiguration().value();
    }
    return result;
}

void Player::start() {
    mRunning = 2;
    bool const pixels = mSettings.mode == Mode::kPixel;
    mFeedThread = std::thread([this] { run(&Player::feed, &Result::feed); });
    mDrainThread = std::thread([this, pixels] {
        run(pixels ? &Player::drainPixels : &Player::drainTunnel, &Result::drain);
    });
}

bool Player::waitForFrames(unsigned int count) {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [&] { return mResult.frames >= count || mRunning == 0; });
    return mResult.frames >= count;
}

Player::Result Player::finish(std::function<void(unsigned int)> const& onProgress) {
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mChanged.wait_for(lock, kProgressEvery, [&] { return mRunning == 0; })) {
        unsigned int const frames = mResult.frames;
        lock.unlock();
        onProgress(frames);
        lock.lock();
    }
    if (mFailure != nullptr) {
        std::rethrow_exception(mFailure);
    }
    mResult.dropped = mDecoder.getFrameInfo().value().droppedFrames;
    return mResult;
}

void Player::stop() {
    {
        std::lock_guard<std::mutex> const lock(mMutex);
        mStopping = true;
    }
    mChanged.notify_all();
    for (std::thread* const thread : {&mFeedThread, &mDrainThread}) {
        if (thread->joinable()) {
            thread->join();
        }
    }
}

/// Makes a call of the decoder until it is taken or fails, or fails for it when the player stops.
template <typename Call>
auto Player::untilTaken(Call call) -> decltype(call()) {
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mStopping) {
        unsigned long long const seen = mMoves;
        lock.unlock();
        auto result = call();
        lock.lock();
        if (result.status().code() != codec_status::kTryAgain.code()) {
            ++mMoves;
            mChanged.notify_all();
            return result;
        }
        mChanged.wait_for(lock, kRetryAfter, [&] { return mMoves != seen || mStopping; });
    }
    return codec_status::kTryAgain;
}

/// The body of a thread: does `work`, and ends the other thread too when that throws or fails. A
/// lost core does not count: the other thread is refused as well, and its answer is of interest.
void Player::run(Status (Player::*work)(), Status Result::*result) {
    Status outcome = codec_status::kTryAgain;
    std::exception_ptr failure;
    try {
        outcome = (this->*work)();
    } catch (...) {
        failure = std::current_exception();
    }
    std::lock_guard<std::mutex> const lock(mMutex);
    bool const wasStopped = outcome.code() == codec_status::kTryAgain.code();
    mResult.*result = wasStopped ? status::kSuccess : outcome;
    if (failure != nullptr) {
        mFailure = failure;
    }
    if (outcome.isError() && outcome.code() != status::kReclaimed.code()) {
        mStopping = true;
    }
    --mRunning;
    mChanged.notify_all();
}

Status Player::feed() {
    auto reader = std::make_unique<ClipReader>(mClip.path, mClip.seconds);
    for (;;) {
        PacketPtr const packet = reader->next();
        if (packet == nullptr && !mSettings.loop) {
            return untilTaken([&] { return mDecoder.writeInputEndOfStream(); }).status();
        }
        if (packet == nullptr) {
            reader = std::make_unique<ClipReader>(mClip.path, mClip.seconds);
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
        showPlanes(*picture, picture->buf[0]->data, info);
        setColors(*picture, mDecoder.getColorAspect().value());
        picture->sample_aspect_ratio = mClip.sampleAspect;
        picture->pts = static_cast<std::int64_t>(info.timestampUs);
        Status result =
            mDecoder.copyFromPixelBuffer(picture->buf[0]->data, info.length, info).status();
        if (!result.isError()) {
            result = mDecoder.releasePixelBuffer(info).status();
        }
        if (result.isError()) {
            return result;
        }
        result = mSettings.sink ? mSettings.sink(*picture) : status::kSuccess;
        if (!result.isError()) {
            countPicture({info.width, info.height});
        }
        std::lock_guard<std::mutex> const lock(mMutex);
        if (result.isError() || mResult.frames == mSettings.limit) {
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
        Status const released = mDecoder.releaseOutputBuffer(buffer).status();
        if (released.isError()) {
            return released;
        }
        bool const shown = !mDecoder.dequeueRenderEvent().status().isError();
        {
            std::lock_guard<std::mutex> const lock(mMutex);
            mResult.wrongStamps += isOurs ? 0U : 1U;
            mResult.rendered += shown ? 1U : 0U;
        }
        countPicture({buffer.width, buffer.height});
    }
}

void Player::countPicture(Size size) {
    std::lock_guard<std::mutex> const lock(mMutex);
    ++mResult.frames;
    mResult.size = size;
    mChanged.notify_all();
}

}  // namespace kvo::media::hardware::demo
