#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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

constexpr char kHelp[] =
    "Usage: tvhw_stress [--seed N] [--seconds N]\n"
    "\n"
    "Uses many decoders and encoders from several threads each, while they are configured,\n"
    "released, reclaimed and destroyed and while calls of the platform fail, for a sanitizer to\n"
    "watch. Checks that nothing hangs or stays held. Exits with 0 when all is well, 1 when not,\n"
    "2 when the options are wrong.\n"
    "\n"
    "  --seed N     of the choices made, not of their order in time; 1 if not given\n"
    "  --seconds N  how long to go on, 1 to 3600; 20 if not given\n";

constexpr unsigned int kDecoderOwners = 5;  // More than there are cores.
constexpr unsigned int kEncoderOwners = 3;
constexpr unsigned int kUsersPerCodec = 3;
constexpr std::uint64_t kMaxObjects = 1'000'000;
constexpr int kHangSeconds = 60;

constexpr int kRefused = -19;
constexpr int kCodecFails = -77;
constexpr milliseconds kWedged{3300};

unsigned int gSeed = 1;
unsigned int gSeconds = 20;
std::atomic<std::uint64_t> gCalls{0};
std::atomic<std::uint64_t> gObjects{0};
std::atomic<std::uint64_t> gReclaimed{0};  ///< Objects.
std::atomic<std::uint64_t> gFaults{0};     ///< Of the platform.
std::atomic<bool> gStop{false};
std::atomic<unsigned int> gRunning{0};  ///< Threads.

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
            ++gReclaimed;
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
    Random random(gSeed * 1000 + owner);
    while (!gStop) {
        live<Kind>(Random(random()));
    }
    --gRunning;
}

/// Reclaims from any client at any moment, makes platform calls fail and changes what the platform
/// grants and allows.
void disturb() {
    Random random(gSeed);
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
            ++gFaults;
        }
        bool const isUnknownCore = oneIn(8, random);
        kvo::host::forceGrant({isUnknownCore ? std::optional<int>(9) : std::nullopt, {}, {}, {}});
        kvo::host::setProperty("ro.vendor.kvo.omx.clear_display", random() % 2);
    }
    --gRunning;
}

/// Lets all threads run, shows that they go on and aborts when they do not.
void run() {
    std::vector<std::thread> threads;
    gRunning = kDecoderOwners + kEncoderOwners + 1;
    for (unsigned int owner = 0; owner < kDecoderOwners + kEncoderOwners; ++owner) {
        bool const isDecoder = owner < kDecoderOwners;
        threads.emplace_back(isDecoder ? ownObjects<Decoder> : ownObjects<Encoder>, owner);
    }
    threads.emplace_back(disturb);
    std::uint64_t lastCalls = 0;
    int idleSeconds = 0;
    for (unsigned int second = 1; gRunning != 0; ++second) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        gStop = gStop || second >= gSeconds || gObjects >= kMaxObjects;
        std::uint64_t const calls = gCalls;
        idleSeconds = calls == lastCalls ? idleSeconds + 1 : 0;
        lastCalls = calls;
        if (second % 5 == 0) {
            std::cerr << "tvhw_stress: " << second << " s, " << calls << " calls\n";
        }
        if (idleSeconds >= kHangSeconds) {
            std::cerr << "tvhw_stress: hangs: no call began for " << idleSeconds << " s\n";
            std::abort();
        }
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

/// Reads an option's value; says what is wrong.
bool parse(std::string const& name, char const* value, unsigned int& number) {
    char const* const end = value + std::strlen(value);
    auto const parsed = std::from_chars(value, end, number);
    bool const isRight = parsed.ec == std::errc() && parsed.ptr == end;
    if (!isRight || (name == "--seconds" && (number < 1 || number > 3600))) {
        std::cerr << "tvhw_stress: '" << value << "' is no value for " << name << "; see --help\n";
        return false;
    }
    return true;
}

}  // namespace

int main(int count, char** arguments) {
    for (int index = 1; index < count; index += 2) {
        std::string const name = arguments[index];
        if (name == "--help") {
            std::cout << kHelp;
            return 0;
        }
        if (name != "--seed" && name != "--seconds") {
            std::cerr << "tvhw_stress: unknown option '" << name << "'; see --help\n";
            return 2;
        }
        char const* const value = index + 1 < count ? arguments[index + 1] : "";
        if (!parse(name, value, name == "--seed" ? gSeed : gSeconds)) {
            return 2;
        }
    }
    kvo::host::setLogLevel(-1);
    std::cout << "tvhw_stress: seed " << gSeed << std::endl;
    run();
    auto const clients = kvo::host::crmClients().size();
    auto const registrations = ResourceClient::sReferenceHolder.size();
    std::cout << "tvhw_stress: " << gObjects << " objects, " << gReclaimed
              << " of them found reclaimed, " << gCalls << " calls, " << gFaults
              << " platform faults set; " << clients << " clients and " << registrations
              << " registrations left\n";
    return clients == 0 && registrations == 0 ? 0 : 1;
}
