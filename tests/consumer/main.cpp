// Plays one life of a decoder through the installed library, as a media process would.

#include <kvo/media/hardware/ConfigurationKeys.h>
#include <tvhw/ImageSinkTvhwImpl.h>
#include <tvhw/VideoDecoderClientWrapperResource.h>
#include <tvhw/VideoEncoderClientWrapperResource.h>
#include <tvhw/VideoScalerClientTvhwImpl.h>

#include <cstdio>
#include <memory>

namespace {

using namespace kvo::media::hardware;

/// Is configured with a core and a display port only. What it does not override fails.
class Decoder : public VideoDecoderClientWrapper {
public:
    Decoder() : VideoDecoderClientWrapper(nullptr) {}

    Return<void> configureTunnelMode(CodecType, Configuration const& config) override {
        int const core = config.getInt32(key::kResourceCoreType, 0);
        int const port = config.getInt32(key::kVideoPort, -1);
        std::printf("core type %d, display port %d\n", core, port);
        bool const isPort = port >= 0 && port < ResourceClient::sMaxVdoPort;
        return Status(core >= 801 && core <= 804 && isPort ? 0 : -5);
    }
    Return<void> release() override { return {}; }
};

/// Says what failed, if anything.
bool check(bool passed, char const* what) {
    if (!passed) {
        std::fprintf(stderr, "consumer: %s\n", what);
    }
    return passed;
}

}  // namespace

int main() {
    VideoDecoderClientWrapperResource decoder(std::make_shared<Decoder>());
    Configuration config;
    config.setInt32(key::kWidth, 1920);
    config.setInt32(key::kHeight, 1080);
    int const configured = decoder.configureTunnelMode(CodecType::AVC, config).status().code();
    bool passed = check(configured == 0, "no core and display port were granted");
    passed &= check(decoder.release().status().code() == 0, "the decoder was not released");

    // The other three classes: that they are there.
    VideoEncoderClientWrapperResource encoder(nullptr);
    passed &= check(encoder.release().status().code() < 0, "an encoder without a client released");
    VideoScalerClientTvhwImpl scaler(0);
    passed &= check(scaler.checkOpen(), "the scaler channel is not open");
    ImageSinkTvhwImpl sink;
    passed &= check(sink.close().status().code() == 0, "the image sink was not open");
    return passed ? 0 : 1;
}
