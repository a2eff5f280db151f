#pragma once

#include <atomic>
#include <functional>
#include <sstream>
#include <string>

#include "host/HostPlatform.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::media::hardware {

/// What the journal shows of an argument: a field that tells one record from another, a pointer as
/// its address.
template <typename T>
auto shown(T const& value) {
    if constexpr (std::is_pointer_v<T>) {
        return static_cast<void const*>(value);
    } else if constexpr (std::is_enum_v<T>) {
        return static_cast<int>(value);
    } else {
        return value;
    }
}
inline auto shown(ColorAspect const& aspect) { return aspect.primaries; }
inline auto shown(HdrInfo const& info) { return info.primariesX[0]; }
inline auto shown(BufferInfo const& buffer) { return buffer.bufferId; }
inline auto shown(PixelInfo const& pixel) { return pixel.bufferId; }
inline auto shown(Image const& image) { return image.stride; }
inline auto shown(Configuration const& config) { return config.size(); }
inline auto shown(std::shared_ptr<NativeBuffer> const& buffer) { return buffer.get(); }

/// What the fake codecs share: they note each call in the journal with its arguments, run `onCall`
/// inside it and answer every operation with `answer`. They leave what pointers name alone.
class FakeCodec {
public:
    Status answer;
    std::function<void(std::string const& operation)> onCall;
    std::atomic<int> releases{0};
    Configuration configured;

protected:
    template <typename... Arguments>
    Return<void> call(char const* operation, Arguments const&... arguments) {
        enter(operation, arguments...);
        return answer;
    }

    template <typename T, typename... Arguments>
    Return<T> callFor(char const* operation, T value, Arguments const&... arguments) {
        enter(operation, arguments...);
        return {answer, std::move(value)};
    }

    /// The configuration is the last argument.
    template <typename... Type>
    Return<void> configureFor(char const* operation, Configuration const& config, Type... type) {
        configured = config;
        return call(operation, type..., config);
    }

    Return<void> countRelease() {
        ++releases;
        return call("release");
    }

private:
    template <typename... Arguments>
    void enter(char const* operation, Arguments const&... arguments) {
        std::ostringstream text;
        text << "codec." << operation;
        [[maybe_unused]] char const* separator = "(";
        ((text << std::exchange(separator, ", ") << shown(arguments)), ...);
        text << (sizeof...(arguments) == 0 ? "" : ")");
        kvo::host::note(text.str());
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

    Return<void> configureTunnelMode(CodecType type, Configuration const& config) override {
        return configureFor(__func__, config, type);
    }
    Return<void> configureReferenceMode(CodecType type, Configuration const& config) override {
        return configureFor(__func__, config, type);
    }
    Return<void> configurePixelMode(CodecType type, Configuration const& config) override {
        return configureFor(__func__, config, type);
    }
    Return<void> configureNativeBufferMode(CodecType type, Configuration const& config) override {
        return configureFor(__func__, config, type);
    }
    Return<void> release() override { return countRelease(); }
    Return<void> writeInputData(unsigned char const* data, unsigned int length,
                                unsigned int flags) override {
        return call(__func__, data, length, flags);
    }
    Return<void> writeInputFrame(unsigned int flags, unsigned long long timestampUs,
                                 unsigned char const* data, unsigned int length) override {
        return call(__func__, flags, timestampUs, data, length);
    }
    Return<void> writeInputEndOfStream() override { return call(__func__); }
    Return<void> writeHdrInfo(ColorAspect const& aspect, HdrInfo const& info) override {
        return call(__func__, aspect, info);
    }
    Return<void> pause() override { return call(__func__); }
    Return<BufferInfo> dequeueOutputBuffer() override { return callFor(__func__, buffer); }
    Return<void> releaseOutputBuffer(BufferInfo const& shownBuffer) override {
        return call(__func__, shownBuffer);
    }
    Return<PixelInfo> dequeuePixelBuffer() override {
        PixelInfo pixel;
        pixel.planes.resize(3);
        return callFor(__func__, pixel);
    }
    Return<void> copyFromPixelBuffer(unsigned char* destination, unsigned int length,
                                     PixelInfo& pixel) override {
        return call(__func__, destination, length, &pixel);
    }
    Return<void> releasePixelBuffer(PixelInfo const& pixel) override {
        return call(__func__, pixel);
    }
    Return<void> queueNativeBuffer(std::shared_ptr<NativeBuffer> native) override {
        return call(__func__, native);
    }
    Return<std::shared_ptr<NativeBuffer>> dequeueNativeBuffer() override {
        return callFor(__func__, std::make_shared<NativeBuffer>());
    }
    Return<RenderEvent> dequeueRenderEvent() override {
        return callFor(__func__, RenderEvent{40, 41});
    }
    Return<void> reconfigureOutputBuffer(CodecType type, Configuration const& config) override {
        return configureFor(__func__, config, type);
    }
    Return<void> flush() override { return call(__func__); }
    Return<void> getInputBufferStatus(unsigned int* freeBytes, unsigned int* totalBytes,
                                      bool* ready) override {
        return call(__func__, freeBytes, totalBytes, ready);
    }
    Return<Configuration> getConfiguration() override { return callFor(__func__, configured); }
};

class FakeEncoder : public VideoEncoderClientWrapper, public FakeCodec {
public:
    FakeEncoder() : VideoEncoderClientWrapper(nullptr) {}

    Return<void> configure(Configuration const& config) override {
        return configureFor(__func__, config);
    }
    Return<void> release() override { return countRelease(); }
    Return<void> writeColorAspect(ColorAspect const& aspect) override {
        return call(__func__, aspect);
    }
    Return<void> writeInputFrame(unsigned long long timestampUs, unsigned char const* data,
                                 unsigned int length) override {
        return call(__func__, timestampUs, data, length);
    }
    Return<void> writeInputImage(unsigned long long timestampUs, Image const& image) override {
        return call(__func__, timestampUs, image);
    }
    Return<int> readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                unsigned int* length, PicType* type) override {
        return callFor(__func__, 7, timestampUs, data, length, type);
    }
    Return<void> pause() override { return call(__func__); }
    Return<void> resume() override { return call(__func__); }
    Return<void> flush() override { return call(__func__); }
    Return<void> setParameters(Configuration const& config) override {
        return call(__func__, config);
    }
    Return<void> getInputBufferStatus(unsigned int* freeBuffers, unsigned int* totalBuffers,
                                      int* width, int* height, int* stride) override {
        return call(__func__, freeBuffers, totalBuffers, width, height, stride);
    }
    Return<Configuration> getConfiguration() override { return callFor(__func__, configured); }
};

}  // namespace kvo::media::hardware
