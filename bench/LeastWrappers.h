#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <type_traits>

#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"
#include "tvhw/ResourceClient.h"

// Wrappers that hold what the library's must hold, and do what a guarded call of theirs must do,
// and nothing else. Derived from the plain wrapper's class, as the library's are.

/// Refuses calls once it is closed, counts those inside, knows whether there are any, and tells a
/// waiting reclaim of each that leaves.
class LeastGuard {
public:
    /// Makes `call` inside the guard and returns its result.
    template <typename Call>
    std::invoke_result_t<Call> around(Call call) {
        Scope const scope(*this);
        if (!scope.mEntered) {
            return kvo::media::hardware::status::kReclaimed;
        }
        return call();
    }

private:
    struct Scope {
        explicit Scope(LeastGuard& guard) : mGuard(guard), mEntered(guard.enter()) {}
        Scope(Scope const&) = delete;
        Scope& operator=(Scope const&) = delete;
        ~Scope() {
            if (mEntered) {
                mGuard.leave();
            }
        }

        LeastGuard& mGuard;
        bool const mEntered;
    };

    bool enter() {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (mState == kReclaiming || mState == kReclaimed) {
            return false;
        }
        mState = kProcessing;
        ++mCount;
        return true;
    }

    void leave() {
        std::lock_guard<std::mutex> const lock(mMutex);
        --mCount;
        if (mState == kProcessing && mCount == 0) {
            mState = kIdle;
        }
        mCondition.notify_all();
    }

    enum State : std::int32_t { kIdle, kProcessing, kReclaiming, kReclaimed };

    std::atomic<std::uint32_t> mCount{0};
    State mState = kIdle;
    std::mutex mMutex;
    std::condition_variable mCondition;
};

/// What both kinds of wrapper hold, apart from themselves so that a reclaim can keep it alive.
template <typename Client>
struct LeastState : ResourceClient::Reclaimable, std::enable_shared_from_this<LeastState<Client>> {
    explicit LeastState(std::shared_ptr<Client> const& theClient) : client(theClient) {}

    bool reclaim() override { return true; }

    std::weak_ptr<Client> client;
    std::shared_ptr<ResourceClient> resourceClient;
    std::atomic<std::int32_t> resourceId{-1};
    std::int32_t coreType = 0;
    std::atomic<std::int32_t> vdoPort{-1};
    std::int32_t maxWidth = -1;
    std::int32_t maxHeight = -1;
};

class LeastDecoder final : public kvo::media::hardware::VideoDecoderClientWrapper {
    using Base = kvo::media::hardware::VideoDecoderClientWrapper;
    using BufferInfo = kvo::media::hardware::BufferInfo;
    using Client = kvo::media::hardware::IVideoDecoderClient;
    template <typename T>
    using Return = kvo::media::hardware::Return<T>;

public:
    explicit LeastDecoder(std::shared_ptr<Client> const& client)
        : Base(client), mState(std::make_shared<State>(client)) {}

    Return<void> writeInputData(unsigned char const* data, unsigned int length,
                                unsigned int flags) override {
        return mState->guard.around([&] { return Base::writeInputData(data, length, flags); });
    }

    Return<BufferInfo> dequeueOutputBuffer() override {
        return mState->guard.around([&] {
            Return<BufferInfo> result = Base::dequeueOutputBuffer();
            BufferInfo& buffer = result.value();
            buffer.videoPort = mState->vdoPort.load(std::memory_order_relaxed);
            buffer.resourceId = mState->resourceId.load(std::memory_order_relaxed);
            buffer.callingPid = mState->callingPid.load(std::memory_order_relaxed);
            return result;
        });
    }

    Return<void> releaseOutputBuffer(BufferInfo const& buffer) override {
        return mState->guard.around([&] {
            mState->vdoPort.store(buffer.videoPort, std::memory_order_relaxed);
            return Base::releaseOutputBuffer(buffer);
        });
    }

    Return<void> getInputBufferStatus(unsigned int* freeBytes, unsigned int* totalBytes,
                                      bool* ready) override {
        return mState->guard.around(
            [&] { return Base::getInputBufferStatus(freeBytes, totalBytes, ready); });
    }

private:
    struct State final : LeastState<Client> {
        using LeastState<Client>::LeastState;

        std::atomic<std::int32_t> callingPid{-1};
        std::atomic<std::int32_t> displayAcquired{0};
        LeastGuard guard;
    };

    std::shared_ptr<State> mState;
};

class LeastEncoder final : public kvo::media::hardware::VideoEncoderClientWrapper {
    using Base = kvo::media::hardware::VideoEncoderClientWrapper;
    using Client = kvo::media::hardware::IVideoEncoderClient;
    using PicType = kvo::media::hardware::PicType;
    template <typename T>
    using Return = kvo::media::hardware::Return<T>;

public:
    explicit LeastEncoder(std::shared_ptr<Client> const& client)
        : Base(client), mState(std::make_shared<State>(client)) {}

    Return<void> writeInputFrame(unsigned long long timestampUs, unsigned char const* data,
                                 unsigned int length) override {
        return mState->guard.around(
            [&] { return Base::writeInputFrame(timestampUs, data, length); });
    }

    Return<int> readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                unsigned int* length, PicType* type) override {
        return mState->guard.around(
            [&] { return Base::readOutputFrame(timestampUs, data, length, type); });
    }

private:
    struct State final : LeastState<Client> {
        using LeastState<Client>::LeastState;

        std::atomic<std::int32_t> liveStreaming{0};
        LeastGuard guard;
    };

    std::shared_ptr<State> mState;
};
