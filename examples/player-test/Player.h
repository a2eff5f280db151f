#pragma once

#include <kvo/media/hardware/ConfigurationKeys.h>
#include <tvhw/VideoDecoderClientWrapperResource.h>

#include <memory>

/// The player under test: plays frames, one at a call.
class Player {
public:
    explicit Player(std::shared_ptr<kvo::media::hardware::IVideoDecoderClient> codec)
        : mDecoder(std::move(codec)) {}

    /// Returns whether there is a core and a display port to play with.
    bool start() {
        using namespace kvo::media::hardware;
        Configuration config;
        config.setInt32(key::kWidth, 1920);
        config.setInt32(key::kHeight, 1080);
        return !mDecoder.configureTunnelMode(CodecType::AVC, config).status().isError();
    }

    /// Plays a frame. Returns false, having given all back, when the core was lost.
    bool play() {
        unsigned char const frame[100]{};
        if (!mDecoder.writeInputFrame(0, 0, frame, sizeof(frame)).status().isError()) {
            return true;
        }
        mDecoder.release();
        return false;
    }

private:
    kvo::media::hardware::VideoDecoderClientWrapperResource mDecoder;
};
