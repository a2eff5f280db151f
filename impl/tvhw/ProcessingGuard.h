#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <type_traits>

#include "Log.h"
#include "ThreadAnnotations.h"
#include "kvo/media/hardware/Return.h"

/// Keeps a reclaim and the calls into a codec apart. A call enters and leaves. A reclaim shuts the
/// guard, gives the calls inside a bounded time to leave, and marks the codec reclaimed.
class ProcessingGuard {
public:
    /// Enters the guard. Returns false, and changes nothing, when a reclaim has closed it. Waits
    /// for a reclaim only while that logs its timeout.
    bool startProcessing() TVHW_EXCLUDES(mMutex);

    /// Leaves the guard: exactly once after each startProcessing() that returned true.
    void finishProcessing() TVHW_EXCLUDES(mMutex);

    /// Closes the guard and waits at most 3 seconds for the calls in flight; on a timeout logs on
    /// behalf of `site` and goes on. Returns false, at once, when the codec is reclaimed already.
    /// For the reclaim's thread.
    bool startReclaim(LogSite const& site) TVHW_EXCLUDES(mMutex);

    /// Marks the codec reclaimed, after startReclaim() returned true and the codec was stopped.
    void finishReclaim() TVHW_EXCLUDES(mMutex);

    /// Says whether the codec has been reclaimed. If so, first makes `call` with the guard locked.
    template <typename Call>
    bool ifReclaimed(Call call) TVHW_EXCLUDES(mMutex) {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (mState != State::kReclaimed) {
            return false;
        }
        call();
        return true;
    }

private:
    enum class State : std::int32_t {
        kIdle = 0,
        kProcessing = 1,  ///< At least one call has entered since the last idle point.
        kReclaiming = 2,  ///< Closed: a reclaim waits, stops the codec, or found none to stop.
        kReclaimed = 3,   ///< The codec has been stopped; closed for good.
    };

    void waitForCalls() TVHW_REQUIRES(mMutex);

    std::atomic<std::uint32_t> mProcessingCount TVHW_GUARDED_BY(mMutex){0};  ///< Calls in flight.
    State mState TVHW_GUARDED_BY(mMutex) = State::kIdle;
    std::mutex mMutex;
    std::condition_variable mCondition;  ///< Signalled when a call leaves.
};

// Every call of a codec takes both steps. They are inline but where a build saves space: there the
// compiler makes functions anyway, and of these two a call needs the fewest instructions.
#ifdef __OPTIMIZE_SIZE__
#define TVHW_GUARD_STEP __attribute__((noinline))
#else
#define TVHW_GUARD_STEP
#endif

TVHW_GUARD_STEP inline bool ProcessingGuard::startProcessing() {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mState == State::kReclaiming || mState == State::kReclaimed) {
        return false;
    }
    mState = State::kProcessing;
    ++mProcessingCount;
    return true;
}

TVHW_GUARD_STEP inline void ProcessingGuard::finishProcessing() {
    std::lock_guard<std::mutex> const lock(mMutex);
    --mProcessingCount;
    if (mState == State::kProcessing && mProcessingCount == 0) {
        mState = State::kIdle;
    }
    // Under the lock: the waiting reclaim may be the last to hold the guard.
    mCondition.notify_all();
}

/// Enters a guard for the length of a scope, so that every path leaves it exactly once.
class ProcessingScope {
public:
    explicit ProcessingScope(ProcessingGuard& guard)
        : mGuard(guard), mEntered(guard.startProcessing()) {}
    ProcessingScope(ProcessingScope const&) = delete;
    ProcessingScope& operator=(ProcessingScope const&) = delete;
    ~ProcessingScope() {
        if (mEntered) {
            mGuard.finishProcessing();
        }
    }

    /// False when the guard refused; the codec must not be called.
    [[nodiscard]] bool entered() const { return mEntered; }

private:
    ProcessingGuard& mGuard;
    bool const mEntered;
};

/// Makes `call` inside the guard and returns its result, or `refusal` with the default value of the
/// result's type when the guard refuses.
template <typename Call>
std::invoke_result_t<Call> whileProcessing(
    ProcessingGuard& guard, Call call,
    kvo::media::hardware::Status refusal = kvo::media::hardware::status::kReclaimed) {
    ProcessingScope const scope(guard);
    if (!scope.entered()) {
        return refusal;
    }
    return call();
}
