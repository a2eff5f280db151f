#include "host/ReclaimAtCall.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>

#include "host/Settings.h"

namespace kvo::host {

namespace {

using When = Settings::Reclaim::When;

std::atomic<void (*)()> gReclaimer{nullptr};
std::atomic<std::uint64_t> gCount{0};  ///< Calls of the operation so far.

void reclaim(std::chrono::milliseconds patience) {
    auto* const reclaimer = gReclaimer.load();
    if (reclaimer == nullptr) {
        static_cast<void>(std::fputs(
            "KVO_HOST_RECLAIM: only the resource manager within the process can do that\n",
            stderr));
        std::_Exit(2);
    }
    std::packaged_task<void()> task(reclaimer);
    std::future<void> const end = task.get_future();
    std::thread(std::move(task)).detach();
    end.wait_for(patience);
}

constexpr std::chrono::milliseconds kPatience{50};

}  // namespace

std::atomic<bool> reclaimIsToCome{settings().reclaim.call != 0};

void setReclaimer(void (*reclaim)()) { gReclaimer.store(reclaim); }

void ReclaimAtCall::enter(char const* operation) {
    Settings::Reclaim const& wanted = settings().reclaim;
    if ((wanted.operation != "*" && wanted.operation != operation) || ++gCount != wanted.call) {
        return;
    }
    reclaimIsToCome = false;
    mComesAfter = wanted.when == When::kAfter;
    if (!mComesAfter) {
        reclaim(wanted.when == When::kBefore ? kPatience : std::chrono::milliseconds(0));
    }
}

void ReclaimAtCall::leave() { reclaim(kPatience); }

}  // namespace kvo::host
