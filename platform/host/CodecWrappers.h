#pragma once

#include <atomic>

#include "kvo/media/hardware/BufferInfo.h"
#include "kvo/media/hardware/Configuration.h"
#include "kvo/media/hardware/Status.h"

/// What the stand-in of the common library knows of the wrappers in the process, to notice when
/// they are misused. A wrapper has no room for it, so it is kept apart, by address. Once
/// there is a record for each wrapper and thread only what is rare takes a lock or allocates: a key
/// that nobody knows, a port that was never granted, a mistake that is told.
namespace kvo::host {

/// A wrapper was constructed, around a client or around none, for which nothing is noted.
void noteWrapper(void const* wrapper, bool hasClient);

/// A wrapper is being destroyed.
void forgetWrapper(void const* wrapper);

/// Tells when another thread is configuring the wrapper: an operation of its owner begins.
void tellOverlap(void const* wrapper, char const* operation);

/// A configure operation of a wrapper has ended with `status`. Tells of what is wrong in `config`.
void noteConfigured(void const* wrapper, char const* operation,
                    media::hardware::Configuration const& config, media::hardware::Status status);

/// release() of a wrapper has returned.
void noteReleased(void const* wrapper);

/// A wrapper is given the size anew; tells when that is not the size that it was configured with.
void noteReconfiguring(void const* wrapper, media::hardware::Configuration const& config);

/// Tells of a codec whose operation has thrown.
void tellThrown(void const* wrapper, char const* operation);

/// An output buffer is being released; tells when nobody has the display port in it.
void noteReleasing(media::hardware::BufferInfo const& buffer);

/// The call of a wrapper that a thread is in.
struct CallOfThread {
    std::atomic<void const*> owner{nullptr};  ///< Null when no thread uses the record.
    std::atomic<void const*> wrapper{nullptr};
    std::atomic<char const*> operation{nullptr};
    CallOfThread* next = nullptr;
};

/// Returns this thread's record.
CallOfThread& callOfThread();

/// How many wrappers are not configured at the moment.
extern std::atomic<int> wrappersNotConfigured;

/// Tells when a call is made before a configuration or after a release.
void checkCall(void const* wrapper, char const* operation);

/// A call of a wrapper, for as long as it lasts. Of wrappers within each other only the outermost
/// is the player's: a reclaim releases the inner one, whatever the player does, as any codec.
class WrapperCall {
public:
    WrapperCall(void const* wrapper, char const* operation)
        : mCall(callOfThread()),
          mIsOutermost(mCall.wrapper.load(std::memory_order_relaxed) == nullptr) {
        if (!mIsOutermost) {
            return;
        }
        mCall.operation.store(operation, std::memory_order_relaxed);
        mCall.wrapper.store(wrapper, std::memory_order_release);
        if (wrappersNotConfigured.load(std::memory_order_relaxed) != 0) {
            checkCall(wrapper, operation);
        }
    }
    ~WrapperCall() {
        if (mIsOutermost) {
            mCall.wrapper.store(nullptr, std::memory_order_release);
        }
    }
    WrapperCall(WrapperCall const&) = delete;
    WrapperCall& operator=(WrapperCall const&) = delete;

private:
    CallOfThread& mCall;
    bool const mIsOutermost;
};

}  // namespace kvo::host
