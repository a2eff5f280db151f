#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <future>
#include <mutex>
#include <thread>

#include "FakeCodecs.h"
#include "Figures.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;
using Clock = std::chrono::steady_clock;

constexpr int kRounds = 1000;
/// For the waiting thread to fall asleep, once it is known to wait.
constexpr std::chrono::microseconds kToFallAsleep{200};
constexpr std::chrono::seconds kWaitLimit{3};

/// Reclaims a decoder during a call. Returns the seconds from the end of the call to its release.
double reclaimOnce() {
    auto const codec = std::make_shared<FakeDecoder>();
    VideoDecoderClientWrapperResource decoder(codec);
    decoder.configureReferenceMode(CodecType::AVC, {});
    auto* const cookie = reinterpret_cast<void*>(kvo::host::crmClients().back().cookie);
    std::future<int> answer;
    Clock::time_point left;
    Clock::time_point released;
    codec->onCall = [&](std::string const& operation) {
        if (operation == "release") {
            released = Clock::now();
        } else if (operation == "flush") {
            answer = std::async(std::launch::async, ResourceClient::OnReclaim, nullptr, cookie);
            while (decoder.writeInputEndOfStream().status().code() != status::kReclaimed.code()) {
                std::this_thread::yield();
            }
            std::this_thread::sleep_for(kToFallAsleep);
            left = Clock::now();
        }
    };
    decoder.flush();
    answer.get();
    codec->onCall = nullptr;
    return std::chrono::duration<double>(released - left).count();
}

/// Wakes a thread through a condition variable. Returns the seconds that it takes.
double handOverOnce() {
    std::mutex mutex;
    std::condition_variable condition;
    bool isWaiting = false;
    unsigned int count = 1;
    Clock::time_point released;
    auto const waiter = std::async(std::launch::async, [&] {
        {
            std::unique_lock<std::mutex> lock(mutex);
            isWaiting = true;
            auto const deadline = Clock::now() + kWaitLimit;
            while (count != 0 && condition.wait_until(lock, deadline) != std::cv_status::timeout) {
            }
        }
        released = Clock::now();
    });
    auto const seesWaiter = [&] {
        std::lock_guard<std::mutex> const lock(mutex);
        return isWaiting;
    };
    while (!seesWaiter()) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(kToFallAsleep);
    Clock::time_point const left = Clock::now();
    {
        std::lock_guard<std::mutex> const lock(mutex);
        --count;
        condition.notify_all();
    }
    waiter.wait();
    return std::chrono::duration<double>(released - left).count();
}

}  // namespace

Rows reclaimDelay() {
    std::fprintf(stderr, "Measuring the delay of a reclaim...\n");
    measureEvents("reclaim", kRounds, reclaimOnce);
    measureEvents("floor", kRounds, handOverOnce);
    auto const medians = runMedians();
    return {{"reclaim, last call to release()", "hand-over to a waiting thread", "ns",
             medians.at("reclaim"), medians.at("floor"), 1.3}};
}
