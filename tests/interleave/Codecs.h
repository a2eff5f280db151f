#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <memory>

#include "kvo/media/hardware/ConfigurationKeys.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"
#include "scheduler/Scheduler.h"

namespace interleave {

namespace media = kvo::media::hardware;

constexpr Nanoseconds kSecond = 1'000'000'000;
constexpr Nanoseconds kReclaimWait = 3 * kSecond;

/// What a thread is doing with a codec.
struct Caller {
    bool isReclaim = false;
    bool beganClosed = false;  ///< Its call began when the guard was closed.
    bool reachedCodec = false;
    bool hasReleased = false;  ///< Its reclaim has begun to release the codec.
    bool overruns = false;     ///< In spite of the calls inside.
    bool isDone = false;       ///< Its reclaim has released the codec.
    bool knowsClosed = false;  ///< That the guard is.
    bool isInside = false;     ///< It is in the codec.
};

/// Watches one codec for calls that a reclaim should have waited for or kept out.
class Watch {
public:
    /// Runs inside each call but release.
    std::function<void()> onCall = [] {};

    Caller& caller() { return mCallers.at(threadNumber()); }

    /// Says whether the guard is closed for certain.
    bool isClosed() const {
        bool isClosed = false;
        for (std::size_t thread = 0; thread < mCallers.size(); ++thread) {
            Caller const& other = mCallers[thread];
            isClosed = isClosed || other.knowsClosed || (hasWaited(thread) && other.isReclaim);
        }
        return isClosed;
    }
    void noteClosed() { caller().knowsClosed = true; }

    /// Says whether the codec has been destroyed.
    bool isGone() const { return mIsGone; }
    void noteGone() { mIsGone = true; }

    /// Says whether this thread's reclaim has waited as long as it may.
    static bool isOverrun() {
        auto const& waits = waitsOf(threadNumber());
        return !waits.empty() && lastNow() >= waits.front().begin + kReclaimWait;
    }

    /// Says whether a reclaim has begun to release the codec.
    bool isReleaseBegun() const { return isAny(&Caller::hasReleased); }
    /// Says whether a reclaim has released the codec.
    bool isReleased() const { return isAny(&Caller::isDone); }

    media::Status call(char const* operation) {
        enter(operation);
        expect(!caller().beganClosed, "%s reaches the codec, the guard being closed", operation);
        expect(!isReleaseBegun() || isAny(&Caller::overruns),
               "%s reaches a codec that a reclaim has released", operation);
        caller().isInside = true;
        onCall();
        point("codec.%s returns", operation);
        caller().isInside = false;
        return {};
    }

    media::Status release() {
        enter("release");
        if (caller().isReclaim) {
            caller().overruns = isOverrun();
            expect(caller().overruns || !isAny(&Caller::isInside),
                   "released with calls in the codec");
            caller().hasReleased = true;
        }
        point("codec.release returns");
        caller().isDone = caller().isReclaim;
        return {};
    }

private:
    bool isAny(bool Caller::*is) const {
        return std::any_of(mCallers.begin(), mCallers.end(),
                           [=](Caller const& caller) { return caller.*is; });
    }
    void enter(char const* operation) {
        expect(locksHeld() == 0, "codec.%s is called with a lock held", operation);
        point("codec.%s", operation);
        caller().reachedCodec = true;
    }

    std::array<Caller, 8> mCallers{};
    bool mIsGone = false;
};

inline void expectPort(int port) {
    expect(port >= -1 && port <= 1, "display port %d is seen, which does not exist", port);
}

/// What no scenario calls is the base's, which has no client.
template <typename Base>
class WatchedCodec : public Base {
public:
    explicit WatchedCodec(std::shared_ptr<Watch> watch) : Base(nullptr), mWatch(std::move(watch)) {}
    ~WatchedCodec() override { mWatch->noteGone(); }

    media::Return<void> release() override { return mWatch->release(); }
    media::Return<void> flush() override { return mWatch->call("flush"); }

protected:
    using Config = media::Configuration;

    std::shared_ptr<Watch> mWatch;
};

class WatchedDecoder : public WatchedCodec<media::VideoDecoderClientWrapper> {
public:
    using WatchedCodec::WatchedCodec;
    using Type = media::CodecType;

#define CONFIGURE(operation) \
    media::Return<void> operation(Type, Config const& config) override { return configure(config); }
    CONFIGURE(configureTunnelMode)
    CONFIGURE(configureReferenceMode)
    CONFIGURE(configurePixelMode)
    CONFIGURE(configureNativeBufferMode)
    CONFIGURE(reconfigureOutputBuffer)
#undef CONFIGURE
    media::Return<void> writeInputEndOfStream() override { return mWatch->call("write"); }
    media::Return<media::BufferInfo> dequeueOutputBuffer() override {
        return mWatch->call("dequeue");
    }
    media::Return<void> releaseOutputBuffer(media::BufferInfo const&) override {
        return mWatch->call("releaseBuffer");
    }

private:
    media::Return<void> configure(Config const& config) {
        expectPort(config.getInt32(media::key::kVideoPort, 9));
        return mWatch->call("configure");
    }
};

class WatchedEncoder : public WatchedCodec<media::VideoEncoderClientWrapper> {
public:
    using WatchedCodec::WatchedCodec;

    media::Return<void> configure(Config const&) override { return mWatch->call("configure"); }
    media::Return<void> writeInputFrame(unsigned long long, unsigned char const*,
                                        unsigned int) override {
        return mWatch->call("write");
    }
};

}  // namespace interleave
