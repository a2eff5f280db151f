#include <charconv>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "GuardedCalls.h"
#include "WatchedCodec.h"
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
    "released, reclaimed and destroyed and while calls of the platform fail, and checks what they\n"
    "answer, which calls reach the codecs and that nothing stays held. Exits with 0 when all is\n"
    "well, 1 when not, 2 when the options are wrong.\n"
    "\n"
    "  --seed N     of the choices made, not of their order in time; 1 if not given\n"
    "  --seconds N  how long to go on, 1 to 3600; 20 if not given\n";

constexpr unsigned int kDecoderOwners = 5;  // More than there are cores.
constexpr unsigned int kEncoderOwners = 3;
constexpr std::uint64_t kMaxObjects = 1'000'000;
constexpr int kHangSeconds = 60;

constexpr int kRefused = -19;
constexpr int kCodecFails = -77;
constexpr milliseconds kWedged{3300};

unsigned int gSeed = 1;
unsigned int gSeconds = 20;
Counters gCounters;
std::atomic<bool> gStop{false};
std::atomic<unsigned int> gRunning{0};  ///< Threads.

using Random = std::linear_congruential_engine<std::uint32_t, 48271, 0, 2147483647>;

bool oneIn(unsigned int count, Random& random) { return random() % count == 0; }

/// Counts and shows what must not be.
void expect(std::string const& what, bool isTrue, std::int64_t value) {
    if (!isTrue && ++gCounters.violations <= 20) {
        std::cerr << "tvhw_stress: " << what << ": " << value << "\n";
    }
}

/// Makes a call of a wrapper, in which a codec sees the caller.
template <typename Call>
auto called(Call const& call) {
    tCaller.startNs = nowNs();
    gCounters.calls.fetch_add(1, std::memory_order_relaxed);
    return call();
}

template <typename Fake>
struct Watched : Fake {
    /// The fake's own configuration is its owner's.
    Return<Configuration> getConfiguration() override {
        return this->callFor("getConfiguration", Configuration{});
    }
};

struct Decoder {
    using Fake = Watched<FakeDecoder>;
    using Wrapper = VideoDecoderClientWrapperResource;
    static auto calls() {
        auto calls = guardedDecoderCalls();
        calls.push_back({"releaseOutputBuffer", [](auto& decoder) {
                             BufferInfo buffer;
                             buffer.videoPort = static_cast<int>(nowNs() % 3);
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
    using Fake = Watched<FakeEncoder>;
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
class Life {
public:
    Life(unsigned int seed, bool isWedged) : mRandom(seed) {
        std::array<int, 4> const answers{0, 0, 3, kCodecFails};
        mAnswer = answers[mRandom() % answers.size()];
        mFake->answer = Status(mAnswer);
        auto const slowness = std::chrono::microseconds(oneIn(2, mRandom) ? 0 : mRandom() % 5000);
        auto const watch = std::make_shared<CallWatch>(gCounters);
        mWatch = watch.get();
        // A reclaim may be in the codec when this object is gone.
        auto const wedged = std::make_shared<std::atomic<bool>>(isWedged);
        mFake->onCall = [watch, wedged, slowness](std::string const& operation) {
            watch->enter(operation);
            bool const stays = tCaller.slot != 0 && wedged->exchange(false);
            if (stays || slowness.count() != 0) {
                std::this_thread::sleep_for(stays ? kWedged : slowness);
            }
            watch->leave(operation);
        };
        mWrapper = std::make_unique<typename Kind::Wrapper>(mFake);
        ++gCounters.objects;
    }

    void live() {
        tCaller = {false, 0, 0};
        configure();
        std::vector<std::thread> users;
        for (std::size_t slot = 1; slot < kThreadsPerCodec; ++slot) {
            users.emplace_back([this, slot, seed = mRandom()] { use(slot, Random(seed)); });
        }
        for (auto steps = 2 + mRandom() % 10; steps != 0 && !mRefused; --steps) {
            std::this_thread::sleep_for(milliseconds(mRandom() % 10));
            if (oneIn(3, mRandom)) {
                int const code = called([&] { return mWrapper->release().status().code(); });
                expect("release", code == mAnswer || code == 0, code);
            } else {
                configure();
            }
        }
        mDone = true;
        for (auto& user : users) {
            user.join();
        }
        gCounters.diedInside += mWatch->isReclaimInside() ? 1 : 0;
        mFake.reset();  // A reclaim may be the last to hold it.
        called([&] { mWrapper.reset(); });
    }

private:
    void configure() {
        bool const wasRefused = mRefused.load(std::memory_order_acquire);
        int const code = called([&] { return Kind::configure(*mWrapper, mRandom); });
        noteRefusal(code);
        expect("configure", code == kRefused || code == -1 || (code == mAnswer && !wasRefused),
               code);
    }

    /// Makes guarded calls until the owner is done or, soon after, the codec is reclaimed.
    void use(std::size_t slot, Random random) {
        static auto const kCalls = Kind::calls();
        tCaller = {false, slot, 0};
        unsigned int callsLeft = 0;
        while (!mDone && (!mRefused || ++callsLeft < 50)) {
            auto const& guarded = kCalls[random() % kCalls.size()];
            bool const hidesRefusal =
                guarded.name == "flush" || guarded.name == "pause" || guarded.name == "resume";
            int const refusal = hidesRefusal ? 0 : kRefused;
            bool const wasRefused = mRefused.load(std::memory_order_acquire);
            int const code = called([&] { return guarded.call(*mWrapper); });
            noteRefusal(code);
            bool const isAnswer = code == mAnswer || (code == 0 && mAnswer > 0 &&
                                                      guarded.name == "dequeueOutputBuffer");
            expect(guarded.name, code == refusal || (isAnswer && !wasRefused), code);
        }
    }

    /// Once a call is refused, all that start later are.
    void noteRefusal(int code) {
        if (code == kRefused) {
            gCounters.refused.fetch_add(1, std::memory_order_relaxed);
            mRefused.store(true, std::memory_order_release);
        }
    }

    Random mRandom;
    int mAnswer = 0;
    CallWatch* mWatch = nullptr;  ///< Lives as long as mFake.
    std::shared_ptr<typename Kind::Fake> mFake = std::make_shared<typename Kind::Fake>();
    std::unique_ptr<typename Kind::Wrapper> mWrapper;
    std::atomic<bool> mRefused{false};
    std::atomic<bool> mDone{false};
};

template <typename Kind>
void ownObjects(unsigned int owner) {
    Random random(gSeed * 1000 + owner);
    for (bool isFirst = true; !gStop; isFirst = false) {
        bool const isWedged = (isFirst && owner % 4 == 0) || oneIn(200, random);
        Life<Kind>(random(), isWedged).live();
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
            int const answer = answers.front().get();
            answers.pop_front();
            gCounters.kept += answer == 0 ? 1 : 0;
            expect("answer of a reclaim", answer >= -1 && answer <= 1, answer);
            continue;
        }
        std::this_thread::sleep_for(milliseconds(random() % 8));
        auto const clients = kvo::host::crmClients();
        if (!clients.empty()) {
            answers.push_back(kvo::host::reclaim(clients[random() % clients.size()].uniqueId));
        }
        if (oneIn(3, random)) {
            kvo::host::failCall("*", oneIn(2, random) ? -5 : 5, 1 + random() % 50);
            ++gCounters.faults;
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
        gStop = gStop || second >= gSeconds || gCounters.objects >= kMaxObjects;
        std::uint64_t const calls = gCounters.calls;
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
    expect("clients still open", clients == 0, static_cast<std::int64_t>(clients));
    auto const registrations = ResourceClient::sReferenceHolder.size();
    expect("registrations left", registrations == 0, static_cast<std::int64_t>(registrations));
    std::cout << "tvhw_stress: " << gCounters.objects << " objects, " << gCounters.calls
              << " calls, " << gCounters.refused << " refused; " << gCounters.reclaims
              << " reclaims, " << gCounters.overrun << " of them timed out, "
              << gCounters.diedInside << " under destruction, " << gCounters.kept
              << " kept their core; " << gCounters.faults << " platform faults set; "
              << gCounters.violations << " violations\n";
    return gCounters.violations == 0 ? 0 : 1;
}
