#include "ProcessingGuard.h"

#include <chrono>

#if defined(__ANDROID_API__) && __ANDROID_API__ < 30
#error "build for Android API level 30 or later: before, waits run on a clock that may be set"
#endif

namespace {

constexpr std::chrono::seconds kReclaimWaitLimit{3};

}  // namespace

bool ProcessingGuard::startReclaim(LogSite const& site) {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mState == State::kReclaimed) {
        return false;
    }
    mState = State::kReclaiming;
    waitForCalls();
    if (std::uint32_t const count = mProcessingCount; count != 0) {
        TVHW_LOG_AT(site, kLogFailure, "reclaim timeout waiting: processing count=%u", count);
    }
    return true;
}

void ProcessingGuard::waitForCalls() {
    auto const deadline = std::chrono::steady_clock::now() + kReclaimWaitLimit;
    std::unique_lock<std::mutex> lock(mMutex, std::adopt_lock);
    while (mProcessingCount != 0) {
        if (mCondition.wait_until(lock, deadline) == std::cv_status::timeout) {
            break;
        }
    }
    lock.release();  // The caller goes on holding the mutex.
}

void ProcessingGuard::finishReclaim() {
    std::lock_guard<std::mutex> const lock(mMutex);
    mState = State::kReclaimed;
}
