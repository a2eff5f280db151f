#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "host/HostPlatform.h"
#include "kvo/media/hardware/IVideoEncoderClient.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"

namespace kvo::media::hardware {

/// What the fake codecs share: they note each call in the journal, run `onCall` inside it and
/// answer every operation with `answer`.
class FakeCodec {
public:
    Status answer;
    std::function<void(std::string const& operation)> onCall;
    std::atomic<int> releases{0};
    Configuration configured;

protected:
    Return<void> call(char const* operation) {
        enter(operation);
        return answer;
    }

    template <typename T>
    Return<T> callFor(char const* operation, T value) {
        enter(operation);
        return {answer, std::move(value)};
    }

    Return<void> configure(char const* operation, Configuration const& config) {
        configured = config;
        return call(operation);
    }

    Return<void> countRelease() {
        ++releases;
        return call("release");
    }

private:
    void enter(std::string const& operation) {
        kvo::host::note("codec." + operation);
        if (onCall) {
            onCall(operation);
        }
    }
};

/// What decoder wrappers forward without a guard is left to the base, but for pause().
class FakeDecoder : public VideoDecoderClientWrapper, public FakeCodec {
public:
    FakeDecoder() : VideoDecoderClientWrapper(nullptr) {}

    BufferInfo buffer;  ///< What dequeueOutputBuffer answers.
    CodecType configuredType{};

    Return<void> configureTunnelMode(CodecType type, Configuration const& config) override {
        return configureFor(type, __func__, config);
    }
    Return<void> configureReferenceMode(CodecType type, Configuration const& config) override {
        return configureFor(type, __func__, config);
    }
    Return<void> configurePixelMode(CodecType type, Configuration const& config) override {
        return configureFor(type, __func__, config);
    }
    Return<void> configureNativeBufferMode(CodecType type, Configuration const& config) override {
        return configureFor(type, __func__, config);
    }
    Return<void> release() override { return countRelease(); }
    Return<void> writeInputData(unsigned char const*, unsigned int, unsigned int) override {
        return call(__func__);
    }
    Return<void> writeInputFrame(unsigned int, unsigned long long, unsigned char const*,
                                 unsigned int) override {
        return call(__func__);
    }
    Return<void> writeInputEndOfStream() override { return call(__func__); }
    Return<void> writeHdrInfo(ColorAspect const&, HdrInfo const&) override {
        return call(__func__);
    }
    Return<void> pause() override { return call(__func__); }
    Return<BufferInfo> dequeueOutputBuffer() override { return callFor(__func__, buffer); }
    Return<void> releaseOutputBuffer(BufferInfo const&) override { return call(__func__); }
    Return<PixelInfo> dequeuePixelBuffer() override {
        PixelInfo pixel;
        pixel.planes.resize(3);
        return callFor(__func__, pixel);
    }
    Return<void> copyFromPixelBuffer(unsigned char*, unsigned int, PixelInfo&) override {
        return call(__func__);
    }
    Return<void> releasePixelBuffer(PixelInfo const&) override { return call(__func__); }
    Return<void> queueNativeBuffer(std::shared_ptr<NativeBuffer>) override {
        return call(__func__);
    }
    Return<std::shared_ptr<NativeBuffer>> dequeueNativeBuffer() override {
        return callFor(__func__, std::make_shared<NativeBuffer>());
    }
    Return<RenderEvent> dequeueRenderEvent() override {
        return callFor(__func__, RenderEvent{40, 41});
    }
    Return<void> reconfigureOutputBuffer(CodecType type, Configuration const& config) override {
        return configureFor(type, __func__, config);
    }
    Return<void> flush() override { return call(__func__); }
    Return<void> getInputBufferStatus(unsigned int* freeBytes, unsigned int* totalBytes,
                                      bool* ready) override {
        *freeBytes = 1;
        *totalBytes = 2;
        *ready = true;
        return call(__func__);
    }
    Return<Configuration> getConfiguration() override { return callFor(__func__, configured); }

private:
    Return<void> configureFor(CodecType type, char const* operation, Configuration const& config) {
        configuredType = type;
        return configure(operation, config);
    }
};

class FakeEncoder : public IVideoEncoderClient, public FakeCodec {
public:
    Return<void> configure(Configuration const& config) override {
        return FakeCodec::configure(__func__, config);
    }
    Return<void> release() override { return countRelease(); }
    Return<void> writeColorAspect(ColorAspect const&) override { return call(__func__); }
    Return<void> writeInputFrame(unsigned long long, unsigned char const*, unsigned int) override {
        return call(__func__);
    }
    Return<void> writeInputImage(unsigned long long, Image const&) override {
        return call(__func__);
    }
    Return<int> readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                unsigned int* length, PicType* type) override {
        *timestampUs = 40;
        *data = 1;
        *length = 1;
        *type = PicType::I;
        return callFor(__func__, 7);
    }
    Return<void> pause() override { return call(__func__); }
    Return<void> resume() override { return call(__func__); }
    Return<void> flush() override { return call(__func__); }
    Return<void> setParameters(Configuration const&) override { return call(__func__); }
    Return<void> getInputBufferStatus(unsigned int* freeBuffers, unsigned int* totalBuffers,
                                      int* width, int* height, int* stride) override {
        *freeBuffers = *totalBuffers = 1;
        *width = *height = *stride = 1;
        return call(__func__);
    }
    Return<Configuration> getConfiguration() override { return callFor(__func__, configured); }
};

}  // namespace kvo::media::hardware
