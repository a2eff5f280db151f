#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <memory>

#include "CodecOperations.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "kvo/media/hardware/IVideoDecoderClient.h"
#include "kvo/media/hardware/IVideoEncoderClient.h"
#include "scheduler/Scheduler.h"

namespace interleave {

using namespace kvo::media::hardware;

constexpr Nanoseconds kSecond = 1'000'000'000;
constexpr Nanoseconds kReclaimWait = 3 * kSecond;

/// What a thread is doing with a codec.
struct Caller {
    bool isReclaim = false;
    bool beganClosed = false;  ///< Its call began when the guard was closed.
    bool reachedCodec = false;
    bool hasReleased = false;  ///< Its reclaim has begun to release the codec.
    bool overruns = false;     ///< In spite of the calls inside, having waited as long as it may.
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

    /// Says whether a reclaim has begun to release the codec.
    bool isReleaseBegun() const { return isAny(&Caller::hasReleased); }
    /// Says whether a reclaim has released the codec.
    bool isReleased() const { return isAny(&Caller::isDone); }

    Status call(char const* operation) {
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

    Status release() {
        enter("release");
        if (caller().isReclaim) {
            caller().overruns =
                !waits().empty() && lastNow() >= waits().front().begin + kReclaimWait;
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
};

inline void expectPort(int port) {
    expect(port >= -1 && port <= 1, "display port %d is seen, which does not exist", port);
}

/// Looks at the arguments of a codec's call.
template <typename... Others>
void look(Others const&... /*arguments*/) {}
inline void look(CodecType /*type*/, Configuration const& config) {
    expectPort(config.getInt32(key::kVideoPort, 9));
}

/// A codec that is watched.
template <typename Interface>
class WatchedCodec : public Interface {
public:
    explicit WatchedCodec(std::shared_ptr<Watch> watch) : mWatch(std::move(watch)) {}
    Return<void> release() override { return mWatch->release(); }

protected:
    std::shared_ptr<Watch> mWatch;
};

#define WATCHED(Result, name, parameters, ...) \
    Return<Result> name parameters override {  \
        look(__VA_ARGS__);                     \
        return mWatch->call(#name);            \
    }
struct WatchedDecoder : WatchedCodec<IVideoDecoderClient> {
    using WatchedCodec::WatchedCodec;
    KVO_MEDIA_DECODER_OPERATIONS(WATCHED, WATCHED)
};
struct WatchedEncoder : WatchedCodec<IVideoEncoderClient> {
    using WatchedCodec::WatchedCodec;
    KVO_MEDIA_ENCODER_OPERATIONS(WATCHED, WATCHED)
};
#undef WATCHED

}  // namespace interleave
