// The smallest player: configures a decoder and feeds it until another player gets its core.

#include <host/HostPlatform.h>
#include <kvo/media/hardware/ConfigurationKeys.h>
#include <tvhw/VideoDecoderClientWrapperResource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <thread>
#include <vector>

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
    config.setInt32(key::kCallingPid, getpid());
    Status const configured = decoder.configureTunnelMode(CodecType::AVC, config).status();
    if (configured.isError()) {
        std::fprintf(stderr, "minimal_player: nothing was granted: status %d\n", configured.code());
        return 1;
    }
    Configuration const granted = decoder.getConfiguration().value();
    std::printf("granted: core of type %d, display port %d, resource id %d\n",
                granted.getInt32(key::kResourceCoreType, 0), granted.getInt32(key::kVideoPort, -1),
                granted.getInt32(key::kResourceId, -1));

    // Feeds until a call fails, as every player does, on a thread of its own.
    unsigned int frames = 0;
    auto feeder = std::async(std::launch::async, [&] {
        unsigned char const frame[100]{};
        Status fed;
        for (; !fed.isError() && frames < 250; std::this_thread::sleep_for(40ms)) {
            fed = decoder.writeInputFrame(0, frames * 40'000ULL, frame, sizeof(frame)).status();
            frames += fed.isError() ? 0U : 1U;
        }
        return fed.code();
    });

    // Meanwhile more players start, until nothing is free and this one has to stop for them.
    std::vector<std::unique_ptr<VideoDecoderClientWrapperResource>> others;
    while (feeder.wait_for(200ms) != std::future_status::ready) {
        others.push_back(
            std::make_unique<VideoDecoderClientWrapperResource>(std::make_shared<Codec>()));
        others.back()->configureTunnelMode(CodecType::AVC, config);
    }
    int const fed = feeder.get();
    std::printf("after %u frames a call got status %d\n%s", frames, fed,
                kvo::host::describe().c_str());

    bool const isReleased = !decoder.release().status().isError();
    return frames > 0 && fed == status::kReclaimed.code() && isReleased ? 0 : 1;
}
