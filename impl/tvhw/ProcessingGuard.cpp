#include "ProcessingGuard.h"

#include <chrono>

namespace {

constexpr std::chrono::seconds kReclaimWaitLimit{3};

}  // namespace

bool ProcessingGuard::startProcessing() {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mState == State::kReclaiming || mState == State::kReclaimed) {
        return false;
    }
    mState = State::kProcessing;
    ++mProcessingCount;
    return true;
}

void ProcessingGuard::finishProcessing() {
    std::lock_guard<std::mutex> const lock(mMutex);
    --mProcessingCount;
    if (mState == State::kProcessing && mProcessingCount == 0) {
        mState = State::kIdle;
    }
    // Under the lock: the waiting reclaim may be the last to hold the guard.
    mCondition.notify_all();
}

bool ProcessingGuard::startReclaim(LogSite const& site) {
    std::unique_lock<std::mutex> lock(mMutex);
    if (mState == State::kReclaimed) {
        return false;
    }
    mState = State::kReclaiming;
    auto const deadline = std::chrono::steady_clock::now() + kReclaimWaitLimit;
    while (mProcessingCount != 0) {
        if (mCondition.wait_until(lock, deadline) == std::cv_status::timeout) {
            break;
        }
    }
    if (std::uint32_t const count = mProcessingCount; count != 0) {
        TVHW_LOG_AT(site, kLogFailure, "reclaim timeout waiting: processing count=%u", count);
    }
    return true;
}

void ProcessingGuard::finishReclaim() {
    std::lock_guard<std::mutex> const lock(mMutex);
    mState = State::kReclaimed;
}
