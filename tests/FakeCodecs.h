#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "host/HostPlatform.h"
#include "kvo/media/hardware/IVideoDecoderClient.h"
#include "kvo/media/hardware/IVideoEncoderClient.h"

/// What the fake codecs share: they note each call in the journal, run `onCall` inside it and
/// answer every operation with `answer`.
class FakeCodec {
public:
    kvo::media::hardware::Status answer;
    std::function<void(std::string const& operation)> onCall;
    std::atomic<int> releases{0};
    kvo::media::hardware::Configuration configured;

protected:
    template <typename T>
    using Return = kvo::media::hardware::Return<T>;
    using Configuration = kvo::media::hardware::Configuration;

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

class FakeDecoder : public kvo::media::hardware::IVideoDecoderClient, public FakeCodec {
public:
    template <typename T>
    using Return = kvo::media::hardware::Return<T>;
    using BufferInfo = kvo::media::hardware::BufferInfo;
    using CodecType = kvo::media::hardware::CodecType;
    using Configuration = kvo::media::hardware::Configuration;
    using NativeBuffer = kvo::media::hardware::NativeBuffer;
    using PixelInfo = kvo::media::hardware::PixelInfo;
    using RenderEvent = kvo::media::hardware::RenderEvent;

    BufferInfo buffer;  ///< What dequeueOutputBuffer answers.
    CodecType configuredType{};

    Return<void> configureTunnelMode(CodecType type, Configuration const& config) override {
        configuredType = type;
        return configure("configureTunnelMode", config);
    }
    Return<void> configureReferenceMode(CodecType type, Configuration const& config) override {
        configuredType = type;
        return configure("configureReferenceMode", config);
    }
    Return<void> configurePixelMode(CodecType type, Configuration const& config) override {
        configuredType = type;
        return configure("configurePixelMode", config);
    }
    Return<void> configureNativeBufferMode(CodecType type, Configuration const& config) override {
        configuredType = type;
        return configure("configureNativeBufferMode", config);
    }
    Return<void> release() override { return countRelease(); }
    Return<void> writeInputData(unsigned char const*, unsigned int, unsigned int) override {
        return call("writeInputData");
    }
    Return<void> writeInputFrame(unsigned int, unsigned long long, unsigned char const*,
                                 unsigned int) override {
        return call("writeInputFrame");
    }
    Return<void> writeInputEndOfStream() override { return call("writeInputEndOfStream"); }
    Return<void> writeHdrInfo(kvo::media::hardware::ColorAspect const&,
                              kvo::media::hardware::HdrInfo const&) override {
        return call("writeHdrInfo");
    }
    Return<void> pause() override { return call("pause"); }
    Return<void> resume() override { return call("resume"); }
    Return<void> step() override { return call("step"); }
    Return<void> setTunnelPeek(bool) override { return call("setTunnelPeek"); }
    Return<void> setSpeed(double) override { return call("setSpeed"); }
    Return<kvo::media::hardware::FrameInfo> getFrameInfo() override {
        return callFor("getFrameInfo", kvo::media::hardware::FrameInfo{});
    }
    Return<kvo::media::hardware::ColorAspect> getColorAspect() override {
        return callFor("getColorAspect", kvo::media::hardware::ColorAspect{});
    }
    Return<kvo::media::hardware::HdrInfo> getHdrInfo() override {
        return callFor("getHdrInfo", kvo::media::hardware::HdrInfo{});
    }
    Return<BufferInfo> dequeueOutputBuffer() override {
        return callFor("dequeueOutputBuffer", buffer);
    }
    Return<void> releaseOutputBuffer(BufferInfo const&) override {
        return call("releaseOutputBuffer");
    }
    Return<PixelInfo> dequeuePixelBuffer() override {
        PixelInfo pixel;
        pixel.planes.resize(3);
        return callFor("dequeuePixelBuffer", pixel);
    }
    Return<void> copyFromPixelBuffer(unsigned char*, unsigned int, PixelInfo&) override {
        return call("copyFromPixelBuffer");
    }
    Return<void> releasePixelBuffer(PixelInfo const&) override {
        return call("releasePixelBuffer");
    }
    Return<void> queueNativeBuffer(std::shared_ptr<NativeBuffer>) override {
        return call("queueNativeBuffer");
    }
    Return<std::shared_ptr<NativeBuffer>> dequeueNativeBuffer() override {
        return callFor("dequeueNativeBuffer", std::make_shared<NativeBuffer>());
    }
    Return<RenderEvent> dequeueRenderEvent() override {
        return callFor("dequeueRenderEvent", RenderEvent{40, 41});
    }
    Return<void> reconfigureOutputBuffer(CodecType type, Configuration const& config) override {
        configuredType = type;
        return configure("reconfigureOutputBuffer", config);
    }
    Return<void> flush() override { return call("flush"); }
    Return<void> getInputBufferStatus(unsigned int* freeBytes, unsigned int* totalBytes,
                                      bool* ready) override {
        *freeBytes = 1;
        *totalBytes = 2;
        *ready = true;
        return call("getInputBufferStatus");
    }
    Return<Configuration> getConfiguration() override {
        return callFor("getConfiguration", configured);
    }
    Return<std::int64_t> currentSTCTime() override {
        return callFor("currentSTCTime", std::int64_t{90000});
    }
    Return<void> testConnection() override { return call("testConnection"); }
    Return<void> testInvalidConnection() override { return call("testInvalidConnection"); }
    Return<void> testWriteInputData(unsigned char const*, unsigned int, unsigned int) override {
        return call("testWriteInputData");
    }
};

class FakeEncoder : public kvo::media::hardware::IVideoEncoderClient, public FakeCodec {
public:
    template <typename T>
    using Return = kvo::media::hardware::Return<T>;
    using Configuration = kvo::media::hardware::Configuration;

    Return<void> configure(Configuration const& config) override {
        return FakeCodec::configure("configure", config);
    }
    Return<void> release() override { return countRelease(); }
    Return<void> writeColorAspect(kvo::media::hardware::ColorAspect const&) override {
        return call("writeColorAspect");
    }
    Return<void> writeInputFrame(unsigned long long, unsigned char const*, unsigned int) override {
        return call("writeInputFrame");
    }
    Return<void> writeInputImage(unsigned long long, kvo::media::hardware::Image const&) override {
        return call("writeInputImage");
    }
    Return<int> readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                unsigned int* length,
                                kvo::media::hardware::PicType* type) override {
        *timestampUs = 40;
        *data = 1;
        *length = 1;
        *type = kvo::media::hardware::PicType::I;
        return callFor("readOutputFrame", 7);
    }
    Return<void> pause() override { return call("pause"); }
    Return<void> resume() override { return call("resume"); }
    Return<void> flush() override { return call("flush"); }
    Return<void> setParameters(Configuration const&) override { return call("setParameters"); }
    Return<void> getInputBufferStatus(unsigned int* freeBuffers, unsigned int* totalBuffers,
                                      int* width, int* height, int* stride) override {
        *freeBuffers = *totalBuffers = 1;
        *width = *height = *stride = 1;
        return call("getInputBufferStatus");
    }
    Return<Configuration> getConfiguration() override {
        return callFor("getConfiguration", configured);
    }
};
