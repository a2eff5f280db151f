#include <memory>
#include <utility>

#include "Codecs.h"
#include "Platform.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

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
    int& inProgress = platform().self().callsInProgress;
    ++inProgress;
    int const code = call();
    --inProgress;
    return code;
}

/// Asks for what a client holds, as the resource manager's thread. Returns the answer.
int reclaim(TVHW_CRM_CLIENT const& client) {
    int const answer = client.reclaim(nullptr, client.cookie);
    for (auto const& wait : waits()) {
        seen(kWaits);
        expect(wait.deadline == waits().front().begin + kReclaimWait,
               "a reclaim waits until %lld ns after it began to",
               static_cast<long long>(wait.deadline - waits().front().begin));
        expect(!wait.timedOut || platform().self().hasTimedOut,
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
            auto const& threads = platform().threads;
            auto const reclaims =
                std::count_if(threads.begin(), threads.end(),
                              [](auto const& thread) { return thread.hasBegunReclaim; });
            expect(reclaims != 0, "a call is refused without a reclaim");
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
        isLetGo = true;
        Caller& me = watch->caller();
        me.reachedCodec = false;
        int const& told = platform().self().releasesTold;
        int const toldBefore = told;
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

    bool isLetGo = false;  ///< The resource client that is reclaimed may be gone.
    std::shared_ptr<Watch> watch = std::make_shared<Watch>();
    /// Apart from the count of its references, so that its memory is freed as it dies.
    std::shared_ptr<typename Kind::Codec> codec{new typename Kind::Codec(watch)};
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
        if (!platform().self().hasBegunReclaim) {
            seen(kFindsNoClient);
            expect(isLetGo, "a reclaim does not find its client");
            return;
        }
        watch->noteClosed();
        if (platform().self().hasTimedOut) {
            seen(kOverruns);
        }
        expect(waits().empty() || me.hasReleased, "a reclaim waits for nothing");
        bool const tells = Kind::kTellsPlatform && me.hasReleased;
        expect(!mKnowsPid || platform().self().reclaimsTold == (tells ? 1 : 0),
               "the platform is not told of the reclaim as it should");
        if (!me.hasReleased && !watch->isReleased()) {
            seen(kFindsNoCodec);
            expect(mWatched.expired(), "a reclaim ends before the codec is released");
        }
    }

    bool mKnowsPid = false;
    std::weak_ptr<typename Kind::Codec> mWatched = codec;
};

/// The scenarios that both wrappers have.
template <typename Kind>
void addCommon(std::string const& kind, std::vector<Scenario>& all) {
    // What `body` starts must use nothing of its own.
    auto const addConfigured = [&](char const* name, std::vector<std::string> facts,
                                   void (*body)(World<Kind>&)) {
        add(all, kind + name, std::move(facts), [body] {
            World<Kind> world;
            world.configure();
            body(world);
            joinAll();
        });
    };
    addConfigured("-calls", {kIsRefused, kWaits}, [](World<Kind>& world) {
        start("writer", [&] {
            world.call(Kind::write);
            world.call(Kind::write);
        });
        start("flusher", [&] { world.call(flush, 0); });
        world.startReclaim();
    });
    // One call stays until the codec is released under it, another for 2 seconds.
    addConfigured("-stuck", {kWaits, kOverruns}, [](World<Kind>& world) {
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
    });
    addConfigured("-two-reclaims", {kIsRefused, kWaits}, [](World<Kind>& world) {
        start("writer", [&] {
            world.call(Kind::write);
            world.call(flush, 0);
        });
        world.startReclaim();
        world.startReclaim();
    });
    addConfigured("-releases", {kIsRefused, kWaits, kFindsNoClient, kWasReclaimed},
                  [](World<Kind>& world) {
                      start("writer", [&] { world.call(Kind::write); });
                      world.startReclaim();
                      start("owner", [&] { world.release(); });
                  });
    // No call may be in flight then, but a reclaim may.
    add(all, kind + "-destroys", {kFindsNoClient, kFindsNoCodec, kDiesInReclaim, kWasReclaimed},
        [] {
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
        });
    addConfigured("-reconfigures", {kIsRefused, kWaits}, [](World<Kind>& world) {
        start("writer", [&] { world.call(Kind::write); });
        world.startReclaim();
        start("owner", [&] {
            world.isLetGo = true;
            world.call(Kind::reconfigure);
        });
    });
    // The owner begins anew while a call and a reclaim of the first session are under way.
    addConfigured("-new-session", {kIsRefused, kWaits}, [](World<Kind>& world) {
        start("writer", [&] { world.call(Kind::write); });
        world.startReclaim();
        start("owner", [&] {
            world.release();
            world.call(Kind::configure);
        });
    });
    // The codec's own call lets go of it, as a callback of the codec may.
    addConfigured("-releases-inside", {kWaits}, [](World<Kind>& world) {
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
    });
    // Without a codec to release the guard stays closed, and the next reclaim waits again.
    add(all, kind + "-without-codec", {kWaits}, [] {
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
        expect(reclaim(client) == 1 && waits().empty(), "a reclaim waits for nothing");
        expect(wrapper.release().status().code() == kNoCodec, "release hides the missing codec");
        expect(!client.isOpen, "release keeps the core");
    });
    // Two codecs come, work and go at once.
    add(all, kind + "-two-codecs", {}, [] {
        for (char const* const owner : {"first", "second"}) {
            start(owner, [] {
                World<Kind> world;
                world.configure();
                world.call(Kind::write);
            });
        }
        joinAll();
    });
    // One codec goes while another comes: a reclaim of the first must not reach the second.
    add(all, kind + "-stale-ids", {kFindsNoClient}, [] {
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
    });
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

template <auto kOperation>
constexpr auto kConfigures = configures<Decoder, Decoder::configureBy<kOperation>>;

}  // namespace

void addCodecScenarios(std::vector<Scenario>& all) {
    using Wrapper = Decoder::Wrapper;
    constexpr auto kTunnel = Decoder::configureBy<&Wrapper::configureTunnelMode>;
    addCommon<Decoder>("decoder", all);
    addCommon<Encoder>("encoder", all);
    add(all, "decoder-tunnel-mode", {kIsRefused}, kConfigures<&Wrapper::configureTunnelMode>);
    add(all, "decoder-reference-mode", {kIsRefused}, kConfigures<&Wrapper::configureReferenceMode>);
    add(all, "decoder-pixel-mode", {kIsRefused}, kConfigures<&Wrapper::configurePixelMode>);
    add(all, "decoder-native-mode", {kIsRefused}, kConfigures<&Wrapper::configureNativeBufferMode>);
    add(all, "decoder-output-buffer", {kWaits}, kConfigures<&Wrapper::reconfigureOutputBuffer>);
    add(all, "encoder-configures", {kIsRefused}, configures<Encoder, Encoder::configure>);
    // Calls that read and learn the port beside what the owner does, once it is configured or
    // before.
    auto const addPorts = [&](char const* name, int reads, bool isConfigured,
                              void (*owns)(World<Decoder>&)) {
        add(all, name, {}, [=] {
            World<Decoder> world;
            platform().ports = {1, 2};
            if (isConfigured) {
                world.configure();
            }
            start("reader", [&] {
                for (int count = 0; count < reads; ++count) {
                    world.call(Decoder::dequeue);
                }
            });
            start("shower", [&] { world.call(Decoder::showOnPort1); });
            start("owner", [&] { owns(world); });
            joinAll();
            world.call(Decoder::dequeue);
        });
    };
    addPorts("decoder-ports", 2, true,
             [](World<Decoder>& world) { world.call(Decoder::reconfigure); });
    addPorts("decoder-reads-early", 1, false, [](World<Decoder>& world) { world.call(kTunnel); });
    addPorts("decoder-reads-late", 1, true, [](World<Decoder>& world) { world.release(); });
    add(all, "encoder-live", {}, [] {
        World<Encoder> world;
        world.configure(Encoder::configureLive);
        auto const& client = platform().clients.front();
        start("writer", [&] { expect(world.call(Encoder::write) == 0, "a call is refused"); });
        start("manager", [&] { expect(reclaim(client) == 0, "a live encoder is reclaimed"); });
        joinAll();
        expect(world.call(flush) == 0, "a call is refused");
    });
    // Whether a reclaim comes before or after it, all that follows fits its answer.
    add(all, "encoder-becomes-live", {kIsTaken, kIsKept}, [] {
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
    });
}

}  // namespace interleave
