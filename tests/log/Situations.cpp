// Makes one thing go wrong on the host platform, as a program in the field would, for its log; or,
// given a number, plays at random without any fault.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "WrapperTest.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::failCall;

/// A wrapper around a fake codec that is destroyed with it.
template <typename Wrapper, typename Fake>
struct Owner {
    std::shared_ptr<Fake> codec = std::make_shared<Fake>();
    Wrapper wrapper{codec};
};
using Decoder = Owner<VideoDecoderClientWrapperResource, FakeDecoder>;
using Encoder = Owner<VideoEncoderClientWrapperResource, FakeEncoder>;

Configuration const kStream = configuration(
    {{key::kWidth, 1280}, {key::kHeight, 720}, {key::kCallingPid, 42}, {key::kOutFormat, 1}});

Configuration const kLive = configuration(
    {{key::kWidth, 1280}, {key::kHeight, 720}, {key::kUseDmaBuffer, 1}, {key::kOutFormat, 1}});

Configuration const kNoSize = configuration({{key::kOutFormat, 1}});

void play(Decoder& decoder) {
    decoder.wrapper.configureReferenceMode(CodecType::AVC, kStream);
    for (int frame = 0; frame < 3; ++frame) {
        decoder.wrapper.writeInputData(nullptr, 0, 0);
        decoder.wrapper.dequeueOutputBuffer();
    }
}

/// A decoder that has begun to play.
struct Player : Decoder {
    Player() { play(*this); }
};

void playWhileFails(char const* platformCall) {
    failCall(platformCall, -5);
    Player().wrapper.release();
}

void pass(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

/// Stays until it is ended from outside.
[[noreturn]] void stay() {
    for (;;) {
        pass(3600000);
    }
}

/// Lets time pass, and the log show that the process went on.
void goOn(int milliseconds) {
    pass(milliseconds);
    VideoScalerClientTvhwImpl const scaler(1);
}

/// Keeps two threads inside the codec's operation of this name and asks for the only core.
void takeFromBusyCodec(char const* operation) {
    kvo::host::setPool({{}});
    auto& first = *new Player;
    std::atomic<int> inside{0};
    first.codec->onCall = [&](std::string const& called) {
        if (called == operation) {
            ++inside;
            stay();
        }
    };
    std::thread([&first] { first.wrapper.flush(); }).detach();
    std::thread([&first] { first.wrapper.flush(); }).detach();
    while (operation == std::string("flush") && inside < 2) {
        std::this_thread::yield();
    }
    std::thread([] { new Player; }).detach();
    while (inside == 0) {  // The reclaim may begin late on a busy machine.
        std::this_thread::yield();
    }
    goOn(3700);
}

IVideoScalerClient::LayerInfo layer(int adaptive, int port = 0,
                                    Region const& output = {0, 0, 640, 360, 1280, 720}) {
    auto const number = static_cast<std::uint8_t>(port);
    return {4, number, 0, adaptive, 0, {0, 0, 640, 360, 1280, 720}, output, 0};
}

void place(IVideoScalerClient::LayerInfo const& connected,
           IVideoScalerClient::LayerInfo const& updated) {
    VideoScalerClientTvhwImpl scaler(0);
    scaler.connect(connected);
    scaler.updateRegion(updated);
}

void show(Configuration const& config) {
    ImageSinkTvhwImpl sink;
    if (!sink.configure(config).status().isError()) {
        sink.displayPicture({});
    }
}

/// Makes a live encoder refuse a reclaim, when the encoders of all `cores` are in use.
void keepByLiveEncoder(std::size_t cores) {
    kvo::host::setPool(std::vector<kvo::host::CodecCore>(cores, {1, true}));
    std::vector<Encoder> encoders(cores + 1);
    for (auto& encoder : encoders) {
        encoder.wrapper.configure(&encoder == &encoders.front() ? kLive : kStream);
    }
}

/// Plays as a player of the field would: looks at every status, and goes when it lost its core.
void playFaultlessly(std::minstd_rand random) {
    static std::mutex configuring;  // One at a time: nobody loses what he has not seen yet.
    auto const below = [&random](unsigned bound) { return static_cast<int>(random() % bound); };
    Configuration stream = kStream;
    stream.setInt32(key::kCallingPid, below(2) * (40 + below(3)));
    int const kind = below(5);
    std::unique_lock<std::mutex> lock(configuring);
    auto const playOn = [&](auto& wrapper, Return<void> const& configured, auto const& feed) {
        lock.unlock();
        bool ok = !configured.status().isError();
        while (ok && below(9) != 0) {
            ok = feed();
            pass(below(3));
        }
        if (below(2) != 0) {
            wrapper.release();
        }
    };
    if (kind == 4) {
        Encoder encoder;
        return playOn(encoder.wrapper, encoder.wrapper.configure(stream), [&] {
            return !encoder.wrapper.writeInputFrame(0, nullptr, 0).status().isError();
        });
    }
    Decoder decoder;
    auto const configure = kind == 0   ? &VideoDecoderClientWrapper::configureTunnelMode
                           : kind == 1 ? &VideoDecoderClientWrapper::configurePixelMode
                                       : &VideoDecoderClientWrapper::configureReferenceMode;
    playOn(decoder.wrapper, (decoder.wrapper.*configure)(CodecType::AVC, stream), [&] {
        return !decoder.wrapper.writeInputData(nullptr, 0, 0).status().isError() &&
               !decoder.wrapper.dequeueOutputBuffer().status().isError();
    });
}

void playAtRandom(unsigned seed) {
    std::vector<std::thread> players;
    for (unsigned player = 0; player < 4; ++player) {
        players.emplace_back([random = std::minstd_rand(seed * 100 + player + 1)]() mutable {
            for (int session = 0; session < 3; ++session) {
                playFaultlessly(random);
                random.discard(97);
            }
        });
    }
    std::minstd_rand random(seed);
    VideoScalerClientTvhwImpl scaler(0);
    for (int change = 0; change < 3; ++change) {
        int const adaptive = static_cast<int>(random() % 2);
        scaler.connect(layer(adaptive));
        if (random() % 2 != 0) {
            scaler.connect(layer(adaptive));
        }
        scaler.updateRegion(layer(adaptive));
        if (random() % 3 != 0) {
            scaler.disconnect();
        }
    }
    for (auto& player : players) {
        player.join();
    }
}

// What is made by `new` is meant to stay: the process ends without destroying it.
std::map<std::string, std::function<void()>> const kSituations{
    {"no-codec", [] { Decoder().wrapper.configureReferenceMode({}, kStream); }},
    {"may-not-force",
     [] {
         kvo::host::setPool({{}});
         kvo::host::setForcedAcquirePolicy([](int) { return false; });
         Player const first;
         Player const second;
     }},
    {"manager-unreachable", [] { playWhileFails("TVHW_CRM_ClientInit"); }},
    {"live-encoder", [] { keepByLiveEncoder(1); }},
    {"live-encoder-and-another-core",
     [] {
         keepByLiveEncoder(2);
         Decoder().wrapper.configureReferenceMode(CodecType::AVC, kStream);
     }},
    {"codec-stuck", [] { takeFromBusyCodec("flush"); }},
    {"reclaim-hangs", [] { takeFromBusyCodec("release"); }},
    {"id-unreadable", [] { playWhileFails("TVHW_CRM_ClientGetUniqueId"); }},
    {"window-blank",
     [] {
         failCall("TVHW_VSC_Connect", -5);
         VideoScalerClientTvhwImpl(0).connect(layer(0));
     }},
    {"region-before-adaptive",
     [] {
         VideoScalerClientTvhwImpl scaler(0);
         scaler.updateRegion(layer(0));
         scaler.connect(layer(1));
     }},
    {"still-not-shown", [] { show(kStream); }},
    {"sink-format", [] { show({}); }},
    {"free-failed", [] { playWhileFails("TVHW_CRM_ClientFree"); }},
    {"no-such-core",
     [] {
         kvo::host::setPool({{}});
         auto const large = configuration({{key::kWidth, 9999}, {key::kHeight, 720}});
         Decoder().wrapper.configureReferenceMode(CodecType::AVC, large);
         Encoder().wrapper.configure(kStream);
     }},
    {"codec-refused",
     [] {
         Decoder decoder;
         decoder.codec->answer = Status(-7);
         decoder.wrapper.configureReferenceMode(CodecType::AVC, kStream);
     }},
    {"not-configured",
     [] {
         Decoder decoder;
         decoder.wrapper.writeInputData(nullptr, 0, 0);
         play(decoder);
         decoder.wrapper.release();
         decoder.wrapper.writeInputData(nullptr, 0, 0);
     }},
    {"no-size", [] { Encoder().wrapper.configure(kNoSize); }},
    {"port-of-nobody", [] { place(layer(0, -1), layer(0)); }},
    {"empty-window",
     [] {
         place(layer(0), layer(0, 0, {0, 0, 0, 0, 1280, 720}));
     }},
    {"nothing-wrong", [] { playWhileFails("TVHW_VO_Close"); }},  // It is not called.
};

// What each of several processes does that share a pool.
std::map<std::string, std::function<void()>> const kRoles{
    {"hold",
     [] {
         Player decoder;
         while (!decoder.wrapper.writeInputData(nullptr, 0, 0).status().isError()) {
             pass(10);
         }
     }},
    {"hold-stuck",
     [] {
         Decoder decoder;
         decoder.codec->onCall = [](std::string const& called) {
             if (called == "release") {
                 stay();
             }
         };
         play(decoder);
         stay();
     }},
    {"hold-live",
     [] {
         Encoder encoder;
         encoder.wrapper.configure(kLive);
         stay();
     }},
    {"ask", [] { Decoder().wrapper.configureReferenceMode(CodecType::AVC, kStream); }},
    {"ask-encoder", [] { Encoder().wrapper.configure(kStream); }},
};

}  // namespace

int main(int argc, char** argv) {
    std::string const name = argc > 1 ? argv[argc - 1] : "";
    auto const& known = argc == 3 ? kRoles : kSituations;
    auto const found = known.find(name);
    if (found != known.end()) {
        found->second();
    } else if (int const seed = std::atoi(name.c_str()); seed > 0) {
        playAtRandom(static_cast<unsigned>(seed));
    } else {
        std::fputs("usage: tvhw_situation NAME, SEED or as ROLE, with NAME one of:\n", stderr);
        for (auto const& entry : kSituations) {
            std::fprintf(stderr, "  %s\n", entry.first.c_str());
        }
        return 2;
    }
    std::_Exit(0);
}
