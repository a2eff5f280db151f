#pragma once

#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

// Codecs whose operations do nothing, so that what is around them shows.

class IdleDecoder final : public kvo::media::hardware::VideoDecoderClientWrapper {
    using BufferInfo = kvo::media::hardware::BufferInfo;
    using Configuration = kvo::media::hardware::Configuration;
    using Done = kvo::media::hardware::Return<void>;

public:
    IdleDecoder() : VideoDecoderClientWrapper(nullptr) {}
    Done configureReferenceMode(kvo::media::hardware::CodecType, Configuration const&) override {
        return {};
    }
    Done release() override { return {}; }
    Done writeInputData(unsigned char const*, unsigned int, unsigned int) override { return {}; }
    kvo::media::hardware::Return<BufferInfo> dequeueOutputBuffer() override { return {}; }
    Done releaseOutputBuffer(BufferInfo const&) override { return {}; }
};

class IdleEncoder final : public kvo::media::hardware::VideoEncoderClientWrapper {
public:
    IdleEncoder() : VideoEncoderClientWrapper(nullptr) {}
    kvo::media::hardware::Return<int> readOutputFrame(unsigned long long*, unsigned char*,
                                                      unsigned int*,
                                                      kvo::media::hardware::PicType*) override {
        return {};
    }
};
