// A player with a mistake that is chosen by name: one that the host platform tells of, or one that
// only comes to light when its core is reclaimed or a platform call fails. It is to be run alone.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"

namespace {

using namespace kvo::media::hardware;
using namespace std::chrono_literals;
using Decoder = VideoDecoderClientWrapperResource;

constexpr int kFailed = 1;
constexpr int kLost = 3;
constexpr int kRefused = 4;
constexpr unsigned int kFrames = 12;

/// Stands for the codec hardware. The hooks run inside the operations of their names.
struct Codec final : VideoDecoderClientWrapper {
    Codec() : VideoDecoderClientWrapper(nullptr) {}

    Return<void> configureTunnelMode(CodecType, Configuration const& config) override {
        mConfig = config;
        inConfigure();
        return {};
    }
    Return<void> configureReferenceMode(CodecType, Configuration const&) override { return {}; }
    Return<void> reconfigureOutputBuffer(CodecType, Configuration const&) override { return {}; }
    Return<Configuration> getConfiguration() override { return {status::kSuccess, mConfig}; }
    Return<void> writeInputFrame(unsigned int, unsigned long long, unsigned char const*,
                                 unsigned int) override {
        inWrite();
        return {};
    }
    Return<void> step() override {
        inStep();
        return {};
    }
    Return<void> releaseOutputBuffer(BufferInfo const&) override { return {}; }
    Return<void> release() override {
        inRelease();
        return {};
    }

    Configuration mConfig;
    std::function<void()> inConfigure = [] {};
    std::function<void()> inWrite = [] {};
    std::function<void()> inStep = [] {};
    std::function<void()> inRelease = [] {};
};

Configuration stream(int width = 1280, int height = 720) {
    Configuration config;
    if (width != 0) {
        config.setInt32(key::kWidth, width);
        config.setInt32(key::kHeight, height);
    }
    return config;
}

/// A player that is right, but for what its hooks do.
struct Player {
    std::shared_ptr<Codec> codec = std::make_shared<Codec>();
    std::unique_ptr<Decoder> decoder = std::make_unique<Decoder>(codec);
    std::function<bool(Status)> goesOn = [](Status status) { return !status.isError(); };
    std::function<void()> onLost = [] {};

    Status configure() { return decoder->configureTunnelMode(CodecType::AVC, stream()).status(); }
    Status write() {
        static unsigned char const frame[100]{};
        std::this_thread::sleep_for(1ms);
        return decoder->writeInputFrame(0, 0, frame, sizeof(frame)).status();
    }
    /// Plays to the end or until the core is lost. Returns the exit status.
    int play() {
        if (configure().isError()) {
            return kRefused;
        }
        Status written;
        for (unsigned int frame = 0; frame < kFrames && goesOn(written);) {
            written = write();
            frame += written.isError() ? 0U : 1U;
        }
        if (written.code() == status::kReclaimed.code()) {
            onLost();
        } else if (written.isError()) {
            return kFailed;
        }
        if (decoder != nullptr) {
            decoder->release();
        }
        return written.isError() ? kLost : 0;
    }
};

/// Plays with a player that `prepare` has spoilt.
template <typename Prepare>
int playWith(Prepare prepare) {
    Player player;
    prepare(player);
    return player.play();
}

[[noreturn]] void waitForEver() {
    for (;;) {
        std::this_thread::sleep_for(1h);
    }
}

VideoScalerClientTvhwImpl& scaler() {
    static VideoScalerClientTvhwImpl theScaler(0);
    return theScaler;
}

IVideoScalerClient::LayerInfo layer(std::uint32_t right, std::uint32_t bottom, int port = 0) {
    IVideoScalerClient::LayerInfo info;
    info.type = 1;
    info.port = static_cast<std::uint8_t>(port);
    info.inputRegion = {0, 0, 1280, 720, 1280, 720};
    info.outputRegion = {0, 0, right, bottom, 1920, 1080};
    return info;
}

void update(IVideoScalerClient::LayerInfo const& info) {
    scaler().connect(layer(1, 1));
    scaler().updateRegion(info);
}

std::map<std::string, std::function<int()>> const kPlayers{
    {"none", [] { return Player().play(); }},

    // What the host platform tells of.
    {"call before configure", [] { return Player().write().code(); }},
    {"call after release",
     [] {
         Player player;
         player.play();
         return player.write().code();
     }},
    {"no size",
     [] { return Player().decoder->configureReferenceMode(CodecType::AVC, {}).status().code(); }},
    {"unknown key",
     [] {
         Configuration config = stream();
         config.setInt32("frame-rate", 25);
         return Player().decoder->configureReferenceMode(CodecType::AVC, config).status().code();
     }},
    {"other size",
     [] {
         Player player;
         player.configure();
         return player.decoder->reconfigureOutputBuffer(CodecType::AVC, stream(1920, 1080))
             .status()
             .code();
     }},
    {"port of nobody",
     [] {
         Player player;
         player.decoder->configureReferenceMode(CodecType::AVC, stream());
         BufferInfo buffer;
         buffer.videoPort = 1;
         return player.decoder->releaseOutputBuffer(buffer).status().code();
     }},
    {"configured twice at once",
     [] {
         Player player;
         std::atomic<int> inside{0};
         player.codec->inConfigure = [&] {
             for (++inside; inside < 2;) {
             }
         };
         std::thread other([&] { player.configure(); });
         while (inside == 0) {
         }
         player.configure();
         other.join();
         return 0;
     }},
    {"destroyed in a call",
     []() -> int {
         Player player;
         std::atomic<bool> isInside{false};
         player.codec->inStep = [&] {
             isInside = true;
             waitForEver();
         };
         player.configure();
         std::thread([&] { player.decoder->step(); }).detach();
         while (!isInside) {
         }
         player.decoder.reset();
         std::_Exit(0);
     }},
    {"release hangs",
     [] {
         static Player& player = *new Player;
         static std::atomic<bool> isInside{false};
         player.codec->inRelease = [] {
             isInside = true;
             waitForEver();
         };
         std::thread([] { player.decoder->release(); }).detach();
         while (!isInside) {
         }
         return 0;
     }},
    {"client left open", [] { return (new Player)->configure().code(); }},
    {"port 255",
     [] {
         scaler().connect(layer(100, 100, -1));
         return 0;
     }},
    {"empty window",
     [] {
         update(layer(0, 0));
         return 0;
     }},
    {"off the panel",
     [] {
         update(layer(1922, 1080));
         return 0;
     }},

    // What comes to light when the core is lost.
    {"spins",
     [] { return playWith([](Player& player) { player.goesOn = [](Status) { return true; }; }); }},
    {"deadlock in release",
     [] {
         static std::mutex mutex;
         static bool isReleased = false;
         return playWith([](Player& player) {
             player.codec->inRelease = [] {
                 std::this_thread::sleep_for(50ms);  // The other thread comes first.
                 std::lock_guard<std::mutex> const lock(mutex);
                 isReleased = true;
             };
             player.onLost = [] {
                 std::lock_guard<std::mutex> const lock(mutex);
                 while (!isReleased) {
                     std::this_thread::sleep_for(1ms);
                 }
             };
         });
     }},
    {"frees what it feeds",
     [] {
         return playWith([](Player& player) {
             player.onLost = [&] {
                 player.decoder.reset();
                 player.decoder->flush();
             };
         });
     }},
    {"waits for the end",
     [] { return playWith([](Player& player) { player.onLost = waitForEver; }); }},
    {"leaks the wrapper",
     [] {
         return playWith([](Player& player) {
             player.onLost = [&] { static_cast<void>(player.decoder.release()); };
         });
     }},
    {"restarts without end",
     [] {
         return playWith([](Player& player) {
             player.onLost = [&] {
                 while (player.configure().isError()) {
                     std::this_thread::sleep_for(1ms);
                 }
             };
         });
     }},
    {"aborts",
     [] { return playWith([](Player& player) { player.onLost = [] { std::abort(); }; }); }},
    {"destroys while another thread calls",
     [] {
         return playWith([](Player& player) {
             player.codec->inStep = [] { std::this_thread::sleep_for(300ms); };
             player.onLost = [&] {
                 std::thread other([decoder = player.decoder.get()] { decoder->step(); });
                 std::this_thread::sleep_for(100ms);
                 player.decoder.reset();
                 other.join();
             };
         });
     }},
    {"goes on for long",
     [] {
         return playWith(
             [](Player& player) { player.onLost = [] { std::this_thread::sleep_for(3s); }; });
     }},
    {"starts again without release",
     [] {
         return playWith([](Player& player) {
             player.onLost = [&] {
                 static_cast<void>(player.decoder.release());
                 player.decoder = std::make_unique<Decoder>(player.codec);
                 player.configure();
             };
         });
     }},
    {"ends with a status of its own",
     [] { return playWith([](Player& player) { player.onLost = [] { std::_Exit(77); }; }); }},

    // What comes to light when a platform call fails.
    {"goes on when refused",
     [] {
         Player player;
         player.configure();
         player.write();
         return player.decoder->release().status().code();
     }},
    {"believes it has a port",
     [] {
         Player player;
         player.configure();
         scaler().connect(layer(
             100, 100, player.decoder->getConfiguration().value().getInt32(key::kVideoPort, -1)));
         return player.decoder->release().status().code();
     }},
};

}  // namespace

int main(int count, char** arguments) {
    auto const player = kPlayers.find(count == 2 ? arguments[1] : "");
    if (player == kPlayers.end()) {
        for (auto const& [name, play] : kPlayers) {
            std::puts(name.c_str());
        }
        return 2;
    }
    return player->second();
}
