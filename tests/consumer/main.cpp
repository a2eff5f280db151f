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

/// Keeps the configuration that reaches it.
class Decoder : public VideoDecoderClientWrapper {
public:
    Decoder() : VideoDecoderClientWrapper(nullptr) {}

    Return<void> configureTunnelMode(CodecType, Configuration const& config) override {
        mConfig = config;
        return {};
    }
    Return<void> release() override {
        mReleased = true;
        return {};
    }

    Configuration mConfig;
    bool mReleased = false;
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
    auto const decoder = std::make_shared<Decoder>();
    VideoDecoderClientWrapperResource wrapper(decoder);
    Configuration config;
    config.setInt32(key::kWidth, 1920);
    config.setInt32(key::kHeight, 1080);
    Status const configured = wrapper.configureTunnelMode(CodecType::AVC, config).status();
    int const core = decoder->mConfig.getInt32(key::kResourceCoreType, 0);
    int const port = decoder->mConfig.getInt32(key::kVideoPort, -1);
    std::printf("core type %d, display port %d\n", core, port);

    bool passed = check(configured.code() == 0, "the decoder was not configured");
    passed &= check(core >= 801 && core <= 804, "no core was granted");
    passed &= check(port >= 0 && port < ResourceClient::sMaxVdoPort, "no display port was granted");
    passed &= check(wrapper.release().status().code() == 0, "the decoder was not released");
    passed &= check(decoder->mReleased, "the release did not reach the client");

    // The other three classes: that they are there.
    VideoEncoderClientWrapperResource encoder(nullptr);
    passed &= check(encoder.release().status().code() < 0, "an encoder without a client released");
    VideoScalerClientTvhwImpl scaler(0);
    passed &= check(scaler.checkOpen(), "the scaler channel is not open");
    ImageSinkTvhwImpl sink;
    passed &= check(sink.close().status().code() == 0, "the image sink was not open");
    return passed ? 0 : 1;
}
