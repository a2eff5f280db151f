// The smallest player: configures a decoder, feeds it, loses its core in mid-stream, releases it.

#include <host/HostPlatform.h>
#include <kvo/media/hardware/ConfigurationKeys.h>
#include <tvhw/VideoDecoderClientWrapperResource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

namespace {

using namespace kvo::media::hardware;
using namespace std::chrono_literals;

/// Stands for the codec hardware. What it does not override fails with status -22.
class Codec final : public VideoDecoderClientWrapper {
public:
    Codec() : VideoDecoderClientWrapper(nullptr) {}

    Return<void> configureTunnelMode(CodecType, Configuration const& config) override {
        mConfig = config;
        return status::kSuccess;
    }
    Return<Configuration> getConfiguration() override { return {status::kSuccess, mConfig}; }
    Return<void> writeInputFrame(unsigned int, unsigned long long, unsigned char const*,
                                 unsigned int) override {
        return status::kSuccess;
    }
    Return<void> release() override { return status::kSuccess; }

private:
    Configuration mConfig;
};

}  // namespace

int main() {
    VideoDecoderClientWrapperResource decoder(std::make_shared<Codec>());

    // Says what will be played; the library takes a core and a display port for it.
    Configuration config;
    config.setInt32(key::kWidth, 1920);
    config.setInt32(key::kHeight, 1080);
    config.setInt32(key::kFrameRate, 25);
    config.setInt32(key::kCallingPid, getpid());
    Status const configured = decoder.configureTunnelMode(CodecType::AVC, config).status();
    if (configured.isError()) {
        std::fprintf(stderr, "minimal_player: nothing was granted: status %d\n", configured.code());
        return 1;
    }
    Configuration const granted = decoder.getConfiguration().value();
    int const id = granted.getInt32(key::kResourceId, -1);
    std::printf("granted: core of type %d, display port %d, resource id %d\n",
                granted.getInt32(key::kResourceCoreType, 0), granted.getInt32(key::kVideoPort, -1),
                id);

    // Feeds until a call fails, as every player does, on a thread of its own.
    unsigned int frames = 0;
    Status fed;
    std::thread feeder([&] {
        for (unsigned char const frame[100]{}; !fed.isError(); std::this_thread::sleep_for(40ms)) {
            fed = decoder.writeInputFrame(0, frames * 40'000ULL, frame, sizeof(frame)).status();
            frames += fed.isError() ? 0 : 1;
        }
    });

    // Meanwhile another program gets the core. On a device nobody has to ask for that.
    std::this_thread::sleep_for(200ms);
    int const answer = kvo::host::reclaim(id).get();
    feeder.join();
    std::printf("reclaimed (answer %d) after %u frames: the next call got status %d\n", answer,
                frames, fed.code());

    Status const released = decoder.release().status();
    std::printf("released: status %d\n", released.code());
    return frames > 0 && fed.code() == status::kReclaimed.code() && !released.isError() ? 0 : 1;
}
