// A player or recorder that is one of several processes: takes a core, uses it until it loses it or
// is ended, and tells by its exit status which.

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;
using namespace std::chrono_literals;

constexpr int kLost = 3;     ///< Exit status: another program got the core.
constexpr int kRefused = 4;  ///< Exit status: no core was granted.

constexpr char kUsage[] = R"(Usage: tvhw_player decoder|encoder|live-encoder
Takes a core and uses it until SIGTERM comes or another program gets it. A live encoder keeps
it. Exits with 0 after SIGTERM, 3 when the core was lost, 4 when none was granted, 1 when the
library did anything else, 2 when the argument is wrong.
)";

volatile std::sig_atomic_t gStop = 0;

// They stand for the codec hardware. What they do not override fails with status -22.

struct DecoderHardware final : VideoDecoderClientWrapper {
    DecoderHardware() : VideoDecoderClientWrapper(nullptr) {}
    Return<void> configureTunnelMode(CodecType, Configuration const&) override { return {}; }
    Return<void> writeInputFrame(unsigned int, unsigned long long, unsigned char const*,
                                 unsigned int) override {
        return {};
    }
    Return<void> release() override { return {}; }
};

struct EncoderHardware final : VideoEncoderClientWrapper {
    EncoderHardware() : VideoEncoderClientWrapper(nullptr) {}
    Return<void> configure(Configuration const&) override { return {}; }
    Return<void> writeInputFrame(unsigned long long, unsigned char const*, unsigned int) override {
        return {};
    }
    Return<void> release() override { return {}; }
};

/// Uses a codec that was configured with status `configured`; `write` gives it a picture. Returns
/// the exit status.
template <typename Codec, typename Write>
int use(Codec& codec, Status const& configured, Write write) {
    if (configured.isError()) {
        return configured.code() == status::kResourceFailed.code() ? kRefused : 1;
    }
    Status written;
    while (gStop == 0 && !written.isError()) {
        written = write();
        std::this_thread::sleep_for(10ms);
    }
    bool const isReleased = !codec.release().status().isError();
    if (!written.isError()) {
        return isReleased ? 0 : 1;
    }
    return isReleased && written.code() == status::kReclaimed.code() ? kLost : 1;
}

int decode(Configuration const& config) {
    VideoDecoderClientWrapperResource decoder(std::make_shared<DecoderHardware>());
    Status const configured = decoder.configureTunnelMode(CodecType::AVC, config).status();
    return use(decoder, configured, [&] {
        unsigned char const picture[100]{};
        return decoder.writeInputFrame(0, 0, picture, sizeof(picture)).status();
    });
}

int encode(Configuration config, bool isLive) {
    config.setInt32(key::kOutFormat, static_cast<int>(CodecType::AVC));
    config.setInt32(key::kUseDmaBuffer, isLive ? 1 : 0);
    VideoEncoderClientWrapperResource encoder(std::make_shared<EncoderHardware>());
    return use(encoder, encoder.configure(config).status(), [&] {
        unsigned char const picture[100]{};
        return encoder.writeInputFrame(0, picture, sizeof(picture)).status();
    });
}

}  // namespace

int main(int count, char** arguments) {
    std::string const argument = count == 2 ? arguments[1] : "";
    Configuration config;
    config.setInt32(key::kWidth, 1920);
    config.setInt32(key::kHeight, 1080);
    config.setInt32(key::kFrameRate, 25);
    config.setInt32(key::kCallingPid, getpid());
    std::signal(SIGTERM, [](int) { gStop = 1; });
    if (argument == "decoder") {
        return decode(config);
    }
    if (argument == "encoder" || argument == "live-encoder") {
        return encode(config, argument == "live-encoder");
    }
    bool const isHelp = argument == "--help";
    std::fputs(kUsage, isHelp ? stdout : stderr);
    return isHelp ? 0 : 2;
}
