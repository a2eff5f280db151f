#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include "FakeCodecs.h"

inline std::int64_t nowNs() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

constexpr std::int64_t kReclaimWaitNs = 3'000'000'000;
constexpr std::size_t kThreadsPerCodec = 4;  ///< The owner and three that use the codec.

/// The call that this thread makes of a wrapper: codecs are called on their callers' threads. The
/// resource manager's threads make none, by which a codec knows its reclaim.
struct Caller {
    bool isReclaim = true;
    std::size_t slot = 0;  ///< Tells the threads of one codec apart.
    std::int64_t startNs = 0;
};
inline thread_local Caller tCaller;

/// What a stress run counts.
struct Counters {
    std::atomic<std::uint64_t> calls{0};
    std::atomic<std::uint64_t> refused{0};   ///< Calls.
    std::atomic<std::uint64_t> reclaims{0};  ///< That released a codec.
    std::atomic<std::uint64_t> kept{0};      ///< Reclaims that a live encoder refused.
    std::atomic<std::uint64_t> overrun{0};   ///< Reclaims that did not wait any longer.
    std::atomic<std::uint64_t> faults{0};    ///< Of the platform.
    std::atomic<std::uint64_t> objects{0};
    std::atomic<std::uint64_t> diedInside{0};  ///< Objects destroyed while a reclaim released.
    std::atomic<std::uint64_t> violations{0};
};

/// Watches one codec for calls that a reclaim should have waited for or kept out.
///
/// A reclaim releases the codec when no call is in the guard or 3 seconds after it has closed it,
/// and the guard never opens again. So a call that is in the codec after the reclaim's release has
/// begun must have started at least 3 seconds before it. All is relaxed, so that the watch itself
/// orders nothing.
class CallWatch {
public:
    explicit CallWatch(Counters& counters) : mCounters(counters) {}

    void enter(std::string const& operation) {
        if (operation != "release") {
            mInside[tCaller.slot].store(tCaller.startNs, std::memory_order_relaxed);
            check(mReclaimedNs.load(std::memory_order_relaxed), tCaller.startNs);
        } else if (tCaller.isReclaim) {
            ++mCounters.reclaims;
            std::int64_t first = 0;
            std::int64_t const now = nowNs();
            mReclaimedNs.compare_exchange_strong(first, now, std::memory_order_relaxed);
            bool overrun = false;
            for (auto const& inside : mInside) {
                auto const startNs = inside.load(std::memory_order_relaxed);
                overrun = overrun || startNs != 0;
                check(startNs == 0 ? 0 : now, startNs);
            }
            mCounters.overrun += overrun ? 1 : 0;
            mReclaimInside.store(true, std::memory_order_relaxed);
        }
    }

    void leave(std::string const& operation) {
        if (operation != "release") {
            mInside[tCaller.slot].store(0, std::memory_order_relaxed);
        } else if (tCaller.isReclaim) {
            mReclaimInside.store(false, std::memory_order_relaxed);
        }
    }

    bool isReclaimInside() const { return mReclaimInside.load(std::memory_order_relaxed); }

private:
    void check(std::int64_t reclaimedNs, std::int64_t startNs) {
        if (reclaimedNs != 0 && reclaimedNs - startNs < kReclaimWaitNs) {
            ++mCounters.violations;
        }
    }

    Counters& mCounters;
    std::array<std::atomic<std::int64_t>, kThreadsPerCodec> mInside{};  ///< Start; 0: not inside.
    std::atomic<std::int64_t> mReclaimedNs{0};                          ///< 0: not reclaimed.
    std::atomic<bool> mReclaimInside{false};
};
