#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "FakeCodecs.h"
#include "GuardedCalls.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;
using std::chrono::milliseconds;

constexpr char kUsage[] = R"(Usage: tvhw_stress SECONDS, 1 to 3600
Uses many decoders and encoders from several threads each, while they are configured,
released, reclaimed and destroyed and while calls of the platform fail, for a sanitizer to
watch. Exits with 0 when nothing stays held, else with 1.
)";

constexpr unsigned int kDecoderOwners = 5;  // More than there are cores.
constexpr unsigned int kEncoderOwners = 3;
constexpr unsigned int kUsersPerCodec = 3;

constexpr int kRefused = -19;
constexpr int kCodecFails = -77;
constexpr milliseconds kWedged{3300};

std::atomic<std::uint64_t> gCalls{0};
std::atomic<std::uint64_t> gObjects{0};
std::atomic<bool> gStop{false};

using Random = std::linear_congruential_engine<std::uint32_t, 48271, 0, 2147483647>;

bool oneIn(unsigned int count, Random& random) { return random() % count == 0; }

template <typename Fake>
struct SharedFake : Fake {
    /// The fake's own configuration is its owner's.
    Return<Configuration> getConfiguration() override {
        return this->callFor("getConfiguration", Configuration{});
    }
};

struct Decoder {
    using Fake = SharedFake<FakeDecoder>;
    using Wrapper = VideoDecoderClientWrapperResource;
    static auto calls() {
        auto calls = guardedDecoderCalls();
        calls.push_back({"releaseOutputBuffer", [](auto& decoder) {
                             BufferInfo buffer;
                             buffer.videoPort =
                                 static_cast<int>(gCalls.load(std::memory_order_relaxed) % 3);
                             return decoder.releaseOutputBuffer(buffer).status().code();
                         }});
        return calls;
    }
    static int configure(Wrapper& decoder, Random& random) {
        static constexpr std::array kConfigure{
            &Wrapper::configureTunnelMode, &Wrapper::configureReferenceMode,
            &Wrapper::configurePixelMode, &Wrapper::configureNativeBufferMode,
            &Wrapper::reconfigureOutputBuffer};
        Configuration config;
        config.setInt32(key::kCallingPid, static_cast<int>(random() % 3));
        auto const operation = kConfigure[random() % kConfigure.size()];
        return (decoder.*operation)(CodecType::AVC, config).status().code();
    }
};

struct Encoder {
    using Fake = SharedFake<FakeEncoder>;
    using Wrapper = VideoEncoderClientWrapperResource;
    static auto calls() { return guardedEncoderCalls(); }
    static int configure(Wrapper& encoder, Random& random) {
        Configuration config;
        config.setInt32(key::kOutFormat, 1);
        config.setInt32(key::kUseDmaBuffer, oneIn(4, random) ? 1 : 0);
        return encoder.configure(config).status().code();
    }
};

/// One wrapper from its construction to its destruction.
template <typename Kind>
void live(Random random) {
    auto fake = std::make_shared<typename Kind::Fake>();
    std::array<int, 4> const answers{0, 0, 3, kCodecFails};
    fake->answer = Status(answers[random() % answers.size()]);
    auto const slowness = std::chrono::microseconds(oneIn(2, random) ? 0 : random() % 5000);
    // A reclaim may be in the codec when all else here is gone.
    auto const wedged = std::make_shared<std::atomic<bool>>(oneIn(200, random));
    fake->onCall = [wedged, slowness](std::string const& operation) {
        bool const stays =
            operation == "flush" && wedged->exchange(false, std::memory_order_relaxed);
        if (stays || slowness.count() != 0) {
            std::this_thread::sleep_for(stays ? kWedged : slowness);
        }
    };
    auto wrapper = std::make_unique<typename Kind::Wrapper>(fake);
    std::atomic<bool> done{false};
    auto const use = [&](Random choices) {
        static auto const kCalls = Kind::calls();
        while (!done.load(std::memory_order_relaxed)) {
            kCalls[choices() % kCalls.size()].call(*wrapper);
            // Orders nothing, or it would hide races.
            gCalls.fetch_add(1, std::memory_order_relaxed);
        }
    };

    Kind::configure(*wrapper, random);
    std::vector<std::thread> users;
    for (unsigned int user = 0; user < kUsersPerCodec; ++user) {
        users.emplace_back(use, Random(random()));
    }
    for (auto steps = 2 + random() % 10; steps != 0; --steps) {
        std::this_thread::sleep_for(milliseconds(random() % 10));
        if (oneIn(3, random)) {
            wrapper->release();
        } else if (Kind::configure(*wrapper, random) == kRefused) {
            steps = 1;
        }
    }
    done = true;
    for (auto& user : users) {
        user.join();
    }
    fake.reset();  // A reclaim may be the last to hold it.
    ++gObjects;
}

template <typename Kind>
void ownObjects(unsigned int owner) {
    Random random(owner + 1);
    while (!gStop) {
        live<Kind>(Random(random()));
    }
}

/// Reclaims from any client at any moment, makes platform calls fail and changes what the platform
/// grants and allows.
void disturb() {
    Random random(1);
    std::deque<std::future<int>> answers;
    kvo::host::setForcedAcquirePolicy([](int pid) { return pid == 1; });
    while (!gStop || !answers.empty()) {
        if (gStop || answers.size() > 16) {
            answers.front().wait();
            answers.pop_front();
            continue;
        }
        std::this_thread::sleep_for(milliseconds(random() % 8));
        auto const clients = kvo::host::crmClients();
        if (!clients.empty()) {
            answers.push_back(kvo::host::reclaim(clients[random() % clients.size()].uniqueId));
        }
        if (oneIn(3, random)) {
            kvo::host::failCall("*", oneIn(2, random) ? -5 : 5, 1 + random() % 50);
        }
        bool const isUnknownCore = oneIn(8, random);
        kvo::host::forceGrant({isUnknownCore ? std::optional<int>(9) : std::nullopt, {}, {}, {}});
        kvo::host::setProperty("ro.vendor.kvo.omx.clear_display", random() % 2);
    }
}

}  // namespace

int main(int count, char** arguments) {
    int const seconds = count == 2 ? std::atoi(arguments[1]) : 0;
    if (seconds < 1 || seconds > 3600) {
        std::cerr << kUsage;
        return 2;
    }
    kvo::host::setLogLevel(-1);
    std::vector<std::thread> threads;
    for (unsigned int owner = 0; owner < kDecoderOwners + kEncoderOwners; ++owner) {
        bool const isDecoder = owner < kDecoderOwners;
        threads.emplace_back(isDecoder ? ownObjects<Decoder> : ownObjects<Encoder>, owner);
    }
    threads.emplace_back(disturb);
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    gStop = true;
    for (auto& thread : threads) {
        thread.join();
    }
    auto const clients = kvo::host::crmClients().size();
    auto const registrations = ResourceClient::sReferenceHolder.size();
    std::cout << "tvhw_stress: " << gObjects << " objects, " << gCalls << " calls; " << clients
              << " clients and " << registrations << " registrations left\n";
    return clients == 0 && registrations == 0 ? 0 : 1;
}
