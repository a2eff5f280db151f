#include "Scenarios.h"

#include <memory>
#include <utility>

#include "../ScalerStart.h"
#include "Codecs.h"
#include "Platform.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"

namespace interleave {

namespace {

using namespace kvo::media::hardware;

constexpr int kRefused = -19;
constexpr int kNoCodec = -22;

constexpr char kIsRefused[] = "a call is refused";
constexpr char kWaits[] = "a reclaim waits";
constexpr char kOverruns[] = "a reclaim overruns a call";
constexpr char kFindsNoClient[] = "a reclaim finds no client";
constexpr char kFindsNoCodec[] = "a reclaim finds no codec";
constexpr char kDiesInReclaim[] = "what a reclaim keeps alive dies with it";
constexpr char kIsTaken[] = "a reclaim takes the core";
constexpr char kIsKept[] = "a reclaim is refused";
constexpr char kWasReclaimed[] = "the owner lets go of a reclaimed codec";

struct Decoder {
    using Wrapper = VideoDecoderClientWrapperResource;
    using Codec = WatchedDecoder;
    static constexpr bool kTellsPlatform = true;

    static Configuration configuration() {
        Configuration config;
        config.setInt32(key::kCallingPid, 7);
        return config;
    }
    template <auto kOperation>
    static int configureBy(Wrapper& decoder) {
        return (decoder.*kOperation)(CodecType::AVC, configuration()).status().code();
    }
    static constexpr auto configure = configureBy<&Wrapper::configureReferenceMode>;
    static constexpr auto reconfigure = configureBy<&Wrapper::reconfigureOutputBuffer>;
    static int write(Wrapper& decoder) { return decoder.writeInputEndOfStream().status().code(); }
    static int dequeue(Wrapper& decoder) {
        auto const result = decoder.dequeueOutputBuffer();
        expectPort(result.value().videoPort);
        return result.status().code();
    }
    static int showOnPort1(Wrapper& decoder) {
        BufferInfo buffer;
        buffer.videoPort = 1;
        return decoder.releaseOutputBuffer(buffer).status().code();
    }
};

struct Encoder {
    using Wrapper = VideoEncoderClientWrapperResource;
    using Codec = WatchedEncoder;
    static constexpr bool kTellsPlatform = false;

    static int configureAs(Wrapper& encoder, bool isLive) {
        Configuration config;
        config.setInt32(key::kOutFormat, 1);
        config.setInt32(key::kUseDmaBuffer, isLive ? 1 : 0);
        return encoder.configure(config).status().code();
    }
    static int configure(Wrapper& encoder) { return configureAs(encoder, false); }
    static int configureLive(Wrapper& encoder) { return configureAs(encoder, true); }
    static constexpr auto reconfigure = configure;
    static int write(Wrapper& encoder) {
        return encoder.writeInputFrame(0, nullptr, 0).status().code();
    }
};

template <typename Wrapper>
int flush(Wrapper& wrapper) {
    return wrapper.flush().status().code();
}

/// Makes a call that a reclaim may have to wait for.
template <typename Call>
int inProgress(Call const& call) {
    int& inProgress = platform().callsInProgress.at(threadNumber());
    ++inProgress;
    int const code = call();
    --inProgress;
    return code;
}

/// Asks for what a client holds, as the resource manager's thread. Returns the answer.
int reclaim(TVHW_CRM_CLIENT const& client) {
    clearWaits();
    int const answer = client.reclaim(nullptr, client.cookie);
    auto const& waits = waitsOf(threadNumber());
    for (auto const& wait : waits) {
        seen(kWaits);
        expect(wait.deadline == waits.front().begin + kReclaimWait,
               "a reclaim waits until %lld ns after it began to",
               static_cast<long long>(wait.deadline - waits.front().begin));
        expect(!wait.timedOut || hasLogged("reclaim timeout", threadNumber()),
               "a reclaim waits in vain: no call is in flight");
    }
    return answer;
}

/// A wrapper around a codec that is watched.
template <typename Kind>
class World {
public:
    using Operation = int (*)(typename Kind::Wrapper&);

    ~World() {
        if (wrapper != nullptr) {
            letGo([&] { wrapper.reset(); });
        }
        expect(codec.use_count() <= 1, "the codec is still in use");
    }

    /// Configures the codec, before any reclaim.
    void configure(Operation operation = Kind::configure) {
        expect(call(operation) == 0, "configure fails");
        mKnowsPid = true;
    }

    /// Makes a call of the wrapper, as any thread.
    int call(Operation operation, int refusal = kRefused) {
        Caller& me = watch->caller();
        me.beganClosed = watch->isClosed();
        me.reachedCodec = false;
        int const code = inProgress([&] { return operation(*wrapper); });
        expect(code == (me.reachedCodec ? 0 : refusal), "a call answers %d", code);
        if (!me.reachedCodec) {
            seen(kIsRefused);
            expect(hasLogged("reclaim: start"), "a call is refused without a reclaim");
            watch->noteClosed();
        }
        return code;
    }

    /// Starts a reclaim of a client, as the resource manager's thread.
    void startReclaim(std::size_t client = 0) {
        start("manager", [this, client] {
            waitUntil([=] { return platform().clients.size() > client; });
            reclaimNow(platform().clients[client]);
        });
    }

    /// Releases or destroys the wrapper, as the owner.
    template <typename Action>
    void letGo(Action const& action) {
        mIsLetGo = true;
        Caller& me = watch->caller();
        me.reachedCodec = false;
        std::size_t const& told = platform().releasesTold.at(threadNumber());
        std::size_t const toldBefore = told;
        action();
        if (!me.reachedCodec) {
            seen(kWasReclaimed);
            expect(watch->isReleased(), "reclaimed, the codec not being released");
        }
        bool const tells = Kind::kTellsPlatform && !me.reachedCodec;
        expect(told == toldBefore + (tells ? 1 : 0),
               "the platform is not told of the release as it should");
    }

    /// Releases the codec, as the owner.
    void release() {
        letGo([this] { expect(wrapper->release().status().code() == 0, "no release"); });
    }

    /// From now on the client that is reclaimed may be replaced.
    void replaceClient() { mIsLetGo = true; }

    std::shared_ptr<Watch> watch = std::make_shared<Watch>();
    std::shared_ptr<typename Kind::Codec> codec = std::make_shared<typename Kind::Codec>(watch);
    std::unique_ptr<typename Kind::Wrapper> wrapper =
        std::make_unique<typename Kind::Wrapper>(codec);

private:
    void reclaimNow(TVHW_CRM_CLIENT const& client) {
        std::size_t const self = threadNumber();
        Caller& me = watch->caller();
        me.isReclaim = true;
        expect(reclaim(client) == 1, "a reclaim is refused");
        if (client.freedBy == self) {
            seen(kDiesInReclaim);
        }
        if (!hasLogged("reclaim: start", self)) {
            seen(kFindsNoClient);
            expect(mIsLetGo, "a reclaim does not find its client");
            return;
        }
        watch->noteClosed();
        if (hasLogged("reclaim timeout", self)) {
            seen(kOverruns);
        }
        expect(waitsOf(self).empty() || me.hasReleased, "a reclaim waits for nothing");
        bool const tells = Kind::kTellsPlatform && me.hasReleased;
        expect(!mKnowsPid || platform().reclaimsTold.at(self) == (tells ? 1 : 0),
               "the platform is not told of the reclaim as it should");
        if (!me.hasReleased && !watch->isReleased()) {
            seen(kFindsNoCodec);
            expect(watch->isGone(), "a reclaim ends before the codec is released");
        }
    }

    bool mKnowsPid = false;
    bool mIsLetGo = false;  ///< The resource client that is reclaimed may be gone.
};

// --- Decoder and encoder.

template <typename Kind>
void callsAndReclaim() {
    World<Kind> world;
    world.configure();
    start("writer", [&] {
        world.call(Kind::write);
        world.call(Kind::write);
    });
    start("flusher", [&] { world.call(flush, 0); });
    world.startReclaim();
    joinAll();
}

/// One call stays until the codec is released under it, another for 2 seconds.
template <typename Kind>
void stuckCall() {
    World<Kind> world;
    world.configure();
    world.watch->onCall = [&] {
        if (threadNumber() == 1) {
            waitUntil([&] { return world.watch->isReleaseBegun(); });
        } else {
            sleepUntil(now() + 2 * kSecond);
        }
    };
    start("stuck", [&] { world.call(Kind::write); });
    start("slow", [&] { world.call(flush, 0); });
    world.startReclaim();
    joinAll();
}

template <typename Kind>
void twoReclaims() {
    World<Kind> world;
    world.configure();
    start("writer", [&] {
        world.call(Kind::write);
        world.call(flush, 0);
    });
    world.startReclaim();
    world.startReclaim();
    joinAll();
}

template <typename Kind>
void ownerReleases() {
    World<Kind> world;
    world.configure();
    start("writer", [&] { world.call(Kind::write); });
    world.startReclaim();
    start("owner", [&] { world.release(); });
    joinAll();
}

/// No call may be in flight then, but a reclaim may.
template <typename Kind>
void ownerDestroys() {
    World<Kind> world;
    world.configure();
    bool isWritten = false;
    start("writer", [&] {
        world.call(Kind::write);
        isWritten = true;
    });
    world.startReclaim();
    start("owner", [&] {
        waitUntil([&] { return isWritten; });
        world.letGo([&] { world.wrapper.reset(); });
        world.codec.reset();
    });
    joinAll();
}

template <typename Kind>
void ownerReconfigures() {
    World<Kind> world;
    world.configure();
    start("writer", [&] { world.call(Kind::write); });
    world.startReclaim();
    start("owner", [&] {
        world.replaceClient();
        world.call(Kind::reconfigure);
    });
    joinAll();
}

/// The owner begins anew while a call and a reclaim of the first session are under way.
template <typename Kind>
void newSession() {
    World<Kind> world;
    world.configure();
    start("writer", [&] { world.call(Kind::write); });
    world.startReclaim();
    start("owner", [&] {
        world.release();
        world.call(Kind::configure);
    });
    joinAll();
}

/// The codec's own call lets go of it, as a callback of the codec may.
template <typename Kind>
void releasesInside() {
    World<Kind> world;
    world.configure();
    world.watch->onCall = [&] {
        if (threadNumber() != 1) {
            return;
        }
        Caller& me = world.watch->caller();
        bool const reachedCodec = me.reachedCodec;
        world.release();
        me.reachedCodec = reachedCodec;
    };
    start("writer", [&] { world.call(Kind::write); });
    start("flusher", [&] { world.call(flush, 0); });
    world.startReclaim();
    joinAll();
}

/// Without a codec to release the guard stays closed, and the next reclaim waits again.
template <typename Kind>
void noCodec() {
    typename Kind::Wrapper wrapper(nullptr);
    expect(Kind::configure(wrapper) == kNoCodec, "configured without a codec");
    auto const& client = platform().clients.front();
    auto const write = [&] { return inProgress([&] { return Kind::write(wrapper); }); };
    start("writer", [&] {
        int const code = write();
        expect(code == kNoCodec || code == kRefused, "a call answers %d", code);
    });
    start("manager", [&] { expect(reclaim(client) == 1, "a reclaim is refused"); });
    start("manager", [&] { expect(reclaim(client) == 1, "a reclaim is refused"); });
    joinAll();
    expect(write() == kRefused, "a call is not refused");
    expect(reclaim(client) == 1 && waitsOf(threadNumber()).empty(), "a reclaim waits for nothing");
    expect(wrapper.release().status().code() == kNoCodec, "release hides the missing codec");
    expect(!client.isOpen, "release keeps the core");
}

/// One codec goes while another comes: a reclaim of the first must not reach the second.
template <typename Kind>
void staleIds() {
    World<Kind> old;
    old.configure();
    old.startReclaim();
    start("newcomer", [] {
        World<Kind> fresh;
        fresh.configure();
        fresh.call(Kind::write);
        expect(!fresh.watch->isReleaseBegun(), "a reclaim hits the wrong codec");
    });
    start("owner", [&] {
        old.letGo([&] { old.wrapper.reset(); });
        old.codec.reset();
    });
    joinAll();
    TVHW_CRM_CLIENT never = platform().clients.front();
    for (std::uintptr_t const cookie : {std::uintptr_t{0}, std::uintptr_t{1'000'000'000}}) {
        never.cookie = reinterpret_cast<void*>(cookie);
        expect(reclaim(never) == 1, "a reclaim of nobody is refused");
    }
}

/// Two codecs come, work and go at once.
template <typename Kind>
void twoCodecs() {
    for (char const* const owner : {"first", "second"}) {
        start(owner, [] {
            World<Kind> world;
            world.configure();
            world.call(Kind::write);
        });
    }
    joinAll();
}

/// A reclaim between any two platform calls of a configure operation.
template <typename Kind, int (*kConfigure)(typename Kind::Wrapper&)>
void configures() {
    World<Kind> world;
    platform().ports = {0, 2};
    world.startReclaim();
    start("owner", [&] { world.call(kConfigure); });
    joinAll();
}

void livingEncoder() {
    World<Encoder> world;
    world.configure(Encoder::configureLive);
    start("writer", [&] { expect(world.call(Encoder::write) == 0, "a call is refused"); });
    start("manager",
          [&] { expect(reclaim(platform().clients.front()) == 0, "a live encoder is reclaimed"); });
    joinAll();
    expect(world.call(flush) == 0, "a call is refused");
}

/// Whether a reclaim comes before or after it, all that follows fits its answer.
void becomesLive() {
    World<Encoder> world;
    int answer = -1;
    start("owner", [&] { world.call(Encoder::configureLive); });
    start("manager", [&] {
        waitUntil([] { return !platform().clients.empty(); });
        world.watch->caller().isReclaim = true;
        answer = reclaim(platform().clients.front());
        seen(answer == 1 ? kIsTaken : kIsKept);
    });
    joinAll();
    expect(world.call(Encoder::write) == (answer == 1 ? kRefused : 0),
           "a call does not fit what the reclaim has answered");
}

/// Calls that read and learn the port while a first configuration is granted one.
void readsEarly() {
    World<Decoder> world;
    platform().ports = {1, 2};
    start("reader", [&] { world.call(Decoder::dequeue); });
    start("shower", [&] { world.call(Decoder::showOnPort1); });
    start("owner",
          [&] { world.call(Decoder::configureBy<&Decoder::Wrapper::configureTunnelMode>); });
    joinAll();
    world.call(Decoder::dequeue);
}

/// The same while the owner gives the port back.
void readsLate() {
    World<Decoder> world;
    platform().ports = {1, 2};
    world.configure();
    start("reader", [&] { world.call(Decoder::dequeue); });
    start("shower", [&] { world.call(Decoder::showOnPort1); });
    start("owner", [&] { world.release(); });
    joinAll();
}

void ports() {
    World<Decoder> world;
    platform().ports = {1, 2};
    world.configure();
    start("reader", [&] {
        world.call(Decoder::dequeue);
        world.call(Decoder::dequeue);
    });
    start("shower", [&] { world.call(Decoder::showOnPort1); });
    start("owner", [&] { world.call(Decoder::reconfigure); });
    joinAll();
    world.call(Decoder::dequeue);
}

// --- Scaler client and image sink.

struct Listening {
    bool isOver = false;
    bool isCalled = false;
};

class Listener : public IVideoScalerClient::Callback {
public:
    explicit Listener(Listening& listening) : mListening(listening) {}
    ~Listener() override { expect(!mListening.isCalled, "a callback dies that is being called"); }

    void onBbdRegion(Region const& /*region*/) override {
        expect(!mListening.isOver, "a callback is called that was replaced");
        expect(locksHeld() == 1, "a callback is called with %zu locks held", locksHeld());
        mListening.isCalled = true;
        point("onBbdRegion");
        seen("a callback is called");
        mListening.isCalled = false;
    }

private:
    Listening& mListening;
};

void scalerCallback() {
    forgetScalerInitialisation();
    std::array<Listening, 2> listening;
    VideoScalerClientTvhwImpl scaler(0);
    scaler.connect({});
    auto first = std::make_shared<Listener>(listening[0]);
    auto const second = std::make_shared<Listener>(listening[1]);
    scaler.setCallback(first);
    start("reporter", [&] {
        scaler.bbdCallbackRegion({});
        scaler.bbdCallbackRegion({});
    });
    start("replacer", [&] {
        std::size_t index = 0;
        for (auto const& next : {second, std::shared_ptr<Listener>()}) {
            scaler.setCallback(next);
            expect(!listening[index].isCalled, "a callback is called that is being replaced");
            listening[index++].isOver = true;
        }
    });
    start("dropper", [&] { first.reset(); });
    joinAll();
}

void scalerConnects() {
    forgetScalerInitialisation();
    Listening listening;
    VideoScalerClientTvhwImpl scaler(0);
    auto const listener = std::make_shared<Listener>(listening);
    scaler.setCallback(listener);
    start("reporter", [&] { scaler.bbdCallbackRegion({}); });
    start("owner", [&] { scaler.connect({}); });
    joinAll();
}

/// What any thread may do, each of it twice, beside the owner.
void scalerAnyThread() {
    forgetScalerInitialisation();
    Listening listening;
    VideoScalerClientTvhwImpl scaler(0);
    auto const listener = std::make_shared<Listener>(listening);
    for (int count = 0; count < 2; ++count) {
        start("reporter", [&] { scaler.bbdCallbackRegion({}); });
        start("setter", [&] { scaler.setCallback(listener); });
    }
    start("owner", [&] {
        scaler.connect({});
        scaler.updateRegion({});
        scaler.disconnect();
    });
    joinAll();
}

/// A report while the picture is placed and its source goes.
void scalerMoves() {
    forgetScalerInitialisation();
    Listening listening;
    VideoScalerClientTvhwImpl scaler(0);
    auto const listener = std::make_shared<Listener>(listening);
    scaler.setCallback(listener);
    scaler.connect({});
    start("reporter", [&] { scaler.bbdCallbackRegion({}); });
    start("owner", [&] {
        scaler.updateRegion({});
        scaler.disconnect();
    });
    joinAll();
}

/// The first attempt fails.
void twoScalers() {
    forgetScalerInitialisation();
    platform().failing = {"VSC_Initialize"};
    for (unsigned int channel = 0; channel < 2; ++channel) {
        start("client", [=] {
            VideoScalerClientTvhwImpl scaler(channel);
            expect(scaler.checkOpen(), "the scaler is not opened");
        });
    }
    joinAll();
    expect(platform().scalerInitialisations == 1, "the scaler is initialised %d times",
           platform().scalerInitialisations);
}

/// The first attempt fails.
void twoSinks() {
    platform().failing = {"VO_Open"};
    for (int sink = 0; sink < 2; ++sink) {
        start("sink", [] {
            ImageSinkTvhwImpl shows;
            expect(shows.checkOpen(), "the output is not opened");
        });
    }
    joinAll();
}

Scenario scenario(std::string name, void (*body)(), std::vector<std::string> facts) {
    return {std::move(name),
            [body] {
                platform() = {};
                body();
                joinAll();
                expectNothingHeld();
            },
            std::move(facts)};
}

template <typename Kind>
void addCodec(std::string const& kind, std::vector<Scenario>& all) {
    all.push_back(scenario(kind + "-calls", callsAndReclaim<Kind>, {kIsRefused, kWaits}));
    all.push_back(scenario(kind + "-stuck", stuckCall<Kind>, {kWaits, kOverruns}));
    all.push_back(scenario(kind + "-two-reclaims", twoReclaims<Kind>, {kIsRefused, kWaits}));
    all.push_back(scenario(kind + "-releases", ownerReleases<Kind>,
                           {kIsRefused, kWaits, kFindsNoClient, kWasReclaimed}));
    all.push_back(scenario(kind + "-destroys", ownerDestroys<Kind>,
                           {kFindsNoClient, kFindsNoCodec, kDiesInReclaim, kWasReclaimed}));
    all.push_back(scenario(kind + "-reconfigures", ownerReconfigures<Kind>, {kIsRefused, kWaits}));
    all.push_back(scenario(kind + "-new-session", newSession<Kind>, {kIsRefused, kWaits}));
    all.push_back(scenario(kind + "-releases-inside", releasesInside<Kind>, {kWaits}));
    all.push_back(scenario(kind + "-without-codec", noCodec<Kind>, {kWaits}));
    all.push_back(scenario(kind + "-two-codecs", twoCodecs<Kind>, {}));
    all.push_back(scenario(kind + "-stale-ids", staleIds<Kind>, {kFindsNoClient}));
}

}  // namespace

std::vector<Scenario> scenarios() {
    using Wrapper = Decoder::Wrapper;
    std::vector<Scenario> all;
    all.push_back(scenario("scaler-callback", scalerCallback, {"a callback is called"}));
    all.push_back(scenario("scaler-connects", scalerConnects, {"a callback is called"}));
    all.push_back(scenario("scaler-any-thread", scalerAnyThread, {"a callback is called"}));
    all.push_back(scenario("scaler-moves", scalerMoves, {"a callback is called"}));
    all.push_back(scenario("two-scalers", twoScalers, {}));
    all.push_back(scenario("two-sinks", twoSinks, {}));
    addCodec<Decoder>("decoder", all);
    all.push_back(scenario("decoder-ports", ports, {}));
    all.push_back(scenario("decoder-reads-early", readsEarly, {}));
    all.push_back(scenario("decoder-reads-late", readsLate, {}));
    all.push_back(scenario("decoder-tunnel-mode",
                           configures<Decoder, Decoder::configureBy<&Wrapper::configureTunnelMode>>,
                           {kIsRefused}));
    all.push_back(
        scenario("decoder-reference-mode", configures<Decoder, Decoder::configure>, {kIsRefused}));
    all.push_back(scenario("decoder-pixel-mode",
                           configures<Decoder, Decoder::configureBy<&Wrapper::configurePixelMode>>,
                           {kIsRefused}));
    all.push_back(
        scenario("decoder-native-mode",
                 configures<Decoder, Decoder::configureBy<&Wrapper::configureNativeBufferMode>>,
                 {kIsRefused}));
    all.push_back(
        scenario("decoder-output-buffer", configures<Decoder, Decoder::reconfigure>, {kWaits}));
    addCodec<Encoder>("encoder", all);
    all.push_back(
        scenario("encoder-configures", configures<Encoder, Encoder::configure>, {kIsRefused}));
    all.push_back(scenario("encoder-live", livingEncoder, {}));
    all.push_back(scenario("encoder-becomes-live", becomesLive, {kIsTaken, kIsKept}));
    return all;
}

}  // namespace interleave
