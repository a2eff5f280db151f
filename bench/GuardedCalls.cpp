#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "Codecs.h"
#include "Subject.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;
constexpr int kCalls = 1000;

/// The least that keeps a reclaim and the calls apart: it refuses once it is closed, counts the
/// calls inside, and wakes a reclaim that waits.
class LeastGuard {
public:
    bool enter() {
        std::lock_guard<std::mutex> const lock(mMutex);
        mInside += mClosed ? 0 : 1;
        return !mClosed;
    }

    void leave() {
        std::lock_guard<std::mutex> const lock(mMutex);
        --mInside;
        if (mClosed) {
            mCondition.notify_all();
        }
    }

private:
    std::mutex mMutex;
    std::condition_variable mCondition;
    std::uint32_t mInside = 0;
    bool mClosed = false;
};

/// Compares `call` of a wrapper of the library's with that of a plain one inside the least guard.
template <typename Guarded, typename Plain, typename Codec, typename Call>
Subject compare(std::string const& operation, double limit, Call call) {
    auto const codec = std::make_shared<Codec>();
    auto const guarded = std::make_shared<Guarded>(codec);
    auto const plain = std::make_shared<Plain>(codec);
    auto const guard = std::make_shared<LeastGuard>();
    auto const measured = repeated(kCalls, [guarded, call] { call(*guarded); });
    auto const least = repeated(kCalls, [plain, guard, call] {
        if (guard->enter()) {
            call(*plain);
            guard->leave();
        }
    });
    return {operation + " through the library's wrapper",
            "the plain wrapper's call between lock, count, unlock, twice",
            {measured},
            {least},
            kCalls,
            limit};
}

}  // namespace

Subjects guardedCalls() {
    auto const decoder = [](char const* operation, double limit, auto call) {
        return compare<VideoDecoderClientWrapperResource, VideoDecoderClientWrapper, IdleDecoder>(
            operation, limit, call);
    };
    return {
        decoder("writeInputData", 1.5,
                [](VideoDecoderClientWrapper& wrapper) {
                    unsigned char const data = 0;
                    keep(wrapper.writeInputData(&data, 1, 0).status().code());
                }),
        decoder("dequeueOutputBuffer", 1.55,
                [](VideoDecoderClientWrapper& wrapper) {
                    keep(wrapper.dequeueOutputBuffer().value().bufferId);
                }),
        decoder("releaseOutputBuffer", 1.5,
                [](VideoDecoderClientWrapper& wrapper) {
                    keep(wrapper.releaseOutputBuffer(BufferInfo()).status().code());
                }),
        compare<VideoEncoderClientWrapperResource, VideoEncoderClientWrapper, IdleEncoder>(
            "readOutputFrame", 1.5,
            [](VideoEncoderClientWrapper& wrapper) {
                unsigned long long time = 0;
                unsigned char data = 0;
                unsigned int length = 1;
                PicType type{};
                keep(wrapper.readOutputFrame(&time, &data, &length, &type).value());
            }),
    };
}
