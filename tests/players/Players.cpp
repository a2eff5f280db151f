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

#include "FakeCodecs.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/ImageSinkTvhwImpl.h"
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

Configuration stream(int width = 1280, int height = 720) {
    Configuration config;
    config.setInt32(key::kWidth, width);
    config.setInt32(key::kHeight, height);
    return config;
}

/// A player that is right, but for what its hooks do.
struct Player {
    std::shared_ptr<FakeDecoder> codec = std::make_shared<FakeDecoder>();
    std::unique_ptr<Decoder> decoder =
        std::make_unique<Decoder>(std::make_shared<VideoDecoderClientWrapper>(codec));
    std::function<void()> onLost = [] {};

    /// Lets `action` run inside the codec's `operation`.
    void inside(std::string const& operation, std::function<void()> const& action) const {
        codec->onCall = [=](std::string const& called) {
            if (called == operation) {
                action();
            }
        };
    }

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
        for (unsigned int frame = 0; frame < kFrames && !written.isError(); ++frame) {
            written = write();
        }
        if (written.code() == status::kReclaimed.code()) {
            decoder->step();  // May come at any time.
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
    Region const output{0, 0, right, bottom, 1920, 1080};
    return {1, static_cast<std::uint8_t>(port), 0, 0, 0, {0, 0, 1280, 720, 1280, 720}, output, 0};
}

void update(IVideoScalerClient::LayerInfo const& info) {
    scaler().connect(layer(1, 1));
    scaler().updateRegion(info);
}

/// Lets another thread make a call that stays in the codec's `operation` for ever.
void getStuck(Player& player, char const* operation, std::function<void()> const& call) {
    static std::atomic<bool> isInside{false};
    player.inside(operation, [] {
        isInside = true;
        waitForEver();
    });
    std::thread(call).detach();
    while (!isInside) {
    }
}

using Mistakes = std::map<std::string, std::function<void(Player&)>>;

/// What the host platform tells of, or what comes to light when a platform call fails.
Mistakes const kMade{
    {"call before configure", [](Player& player) { player.write(); }},
    {"call after release",
     [](Player& player) {
         player.play();
         player.write();
     }},
    {"no size", [](Player& player) { player.decoder->configureReferenceMode(CodecType::AVC, {}); }},
    {"exception",
     [](Player& player) {
         player.inside("writeInputFrame", [] { throw 1; });
         player.configure();
         try {
             player.write();
         } catch (int) {
         }
     }},
    {"picture too early", [](Player&) { ImageSinkTvhwImpl().displayPicture({}); }},
    {"unknown key",
     [](Player& player) {
         Configuration config = stream();
         config.setInt32("frame-rate", 25);
         player.decoder->configureReferenceMode(CodecType::AVC, config);
     }},
    {"other size",
     [](Player& player) {
         player.configure();
         player.decoder->reconfigureOutputBuffer(CodecType::AVC, stream(1920, 1080));
     }},
    {"port of nobody",
     [](Player& player) {
         player.decoder->configureReferenceMode(CodecType::AVC, stream());
         BufferInfo buffer;
         buffer.videoPort = 1;
         player.decoder->releaseOutputBuffer(buffer);
         player.decoder->releaseOutputBuffer(buffer);
     }},
    {"configured twice at once",
     [](Player& player) {
         std::atomic<int> inside{0};
         player.inside("configureTunnelMode", [&] {
             for (++inside; inside < 2;) {
             }
         });
         std::thread other([&] { player.configure(); });
         while (inside == 0) {
         }
         player.configure();
         other.join();
     }},
    {"destroyed in a call",
     [](Player& player) {
         player.configure();
         getStuck(player, "step", [&] { player.decoder->step(); });
         player.decoder.reset();
         std::_Exit(0);
     }},
    {"release hangs",
     [](Player&) {
         auto& player = *new Player;
         getStuck(player, "release", [&] { player.decoder->release(); });
     }},
    {"client left open", [](Player&) { (new Player)->configure(); }},
    {"port 255", [](Player&) { scaler().connect(layer(100, 100, -1)); }},
    {"empty window", [](Player&) { update(layer(0, 0)); }},
    {"off the panel", [](Player&) { update(layer(1922, 1080)); }},
    {"goes on when refused",
     [](Player& player) {
         player.configure();
         player.write();
         player.decoder->release();
     }},
    {"believes it has a port",
     [](Player& player) {
         player.configure();
         scaler().connect(layer(
             100, 100, player.decoder->getConfiguration().value().getInt32(key::kVideoPort, -1)));
         player.decoder->release();
     }},
};

/// What spoils a player that is right else; most of it comes to light when the core is lost.
Mistakes const kSpoiling{
    {"none",
     [](Player& player) {
         Configuration config = stream();
         config.setInt32("key of a codec that refuses", 1);
         player.codec->answer = Status(-5);
         player.decoder->configureReferenceMode(CodecType::AVC, config);
         player.decoder->release();
         player.codec->answer = {};
     }},
    {"spins",
     [](Player& player) {
         player.onLost = [&] {
             while (player.write().isError()) {
             }
         };
     }},
    {"deadlock in release",
     [](Player& player) {
         static std::mutex mutex;
         static bool isReleased = false;
         player.inside("release", [] {
             std::this_thread::sleep_for(50ms);  // The other thread comes first.
             std::lock_guard<std::mutex> const lock(mutex);
             isReleased = true;
         });
         player.onLost = [] {
             std::lock_guard<std::mutex> const lock(mutex);
             while (!isReleased) {
                 std::this_thread::sleep_for(1ms);
             }
         };
     }},
    {"frees what it feeds",
     [](Player& player) {
         player.onLost = [&] {
             player.decoder.reset();
             player.decoder->flush();
         };
     }},
    {"waits for the end", [](Player& player) { player.onLost = waitForEver; }},
    {"leaks the wrapper",
     [](Player& player) { player.onLost = [&] { static_cast<void>(player.decoder.release()); }; }},
    {"restarts without end",
     [](Player& player) {
         player.onLost = [&] {
             while (player.configure().isError()) {
                 std::this_thread::sleep_for(1ms);
             }
         };
     }},
    {"destroys while another thread calls",
     [](Player& player) {
         player.inside("step", [] { std::this_thread::sleep_for(300ms); });
         player.onLost = [&] {
             std::thread other([decoder = player.decoder.get()] { decoder->step(); });
             std::this_thread::sleep_for(100ms);
             player.decoder.reset();
             other.join();
         };
     }},
    {"goes on for long",
     [](Player& player) { player.onLost = [] { std::this_thread::sleep_for(3s); }; }},
    {"starts again without release",
     [](Player& player) {
         player.onLost = [&] {
             static_cast<void>(player.decoder.release());
             player.decoder = std::make_unique<Decoder>(player.codec);
             player.configure();
         };
     }},
    {"ends with a status of its own",
     [](Player& player) { player.onLost = [] { std::_Exit(255); }; }},
};

}  // namespace

int main(int count, char** arguments) {
    std::string const name = count == 2 ? arguments[1] : "";
    Player player;
    if (kMade.count(name) != 0) {
        kMade.at(name)(player);
        return 0;
    }
    if (kSpoiling.count(name) != 0) {
        kSpoiling.at(name)(player);
        return player.play();
    }
    for (auto const* const mistakes : {&kMade, &kSpoiling}) {
        for (auto const& mistake : *mistakes) {
            std::puts(mistake.first.c_str());
        }
    }
    return 2;
}
