#pragma once

#include <memory>

#include "kvo/media/hardware/Export.h"
#include "kvo/media/hardware/IVideoDecoderClient.h"

namespace kvo::media::hardware {

/// A decoder that forwards every operation to its client and returns the client's result. Defined
/// in libkvo_media_hw_common; without a client every operation of the host platform's fails with
/// -22.
class KVO_MEDIA_EXPORT VideoDecoderClientWrapper : public IVideoDecoderClient {
public:
    /// Keeps `client` alive for as long as the wrapper lives.
    explicit VideoDecoderClientWrapper(std::shared_ptr<IVideoDecoderClient> client);
    ~VideoDecoderClientWrapper() override;

    Return<void> configureTunnelMode(CodecType type, Configuration const& config) override;
    Return<void> configureReferenceMode(CodecType type, Configuration const& config) override;
    Return<void> configurePixelMode(CodecType type, Configuration const& config) override;
    Return<void> configureNativeBufferMode(CodecType type, Configuration const& config) override;
    Return<void> release() override;
    Return<void> writeInputData(unsigned char const* data, unsigned int length,
                                unsigned int flags) override;
    Return<void> writeInputFrame(unsigned int flags, unsigned long long timestampUs,
                                 unsigned char const* data, unsigned int length) override;
    Return<void> writeInputEndOfStream() override;
    Return<void> writeHdrInfo(ColorAspect const& aspect, HdrInfo const& info) override;
    Return<void> pause() override;
    Return<void> resume() override;
    Return<void> step() override;
    Return<void> setTunnelPeek(bool enable) override;
    Return<void> setSpeed(double speed) override;
    Return<FrameInfo> getFrameInfo() override;
    Return<ColorAspect> getColorAspect() override;
    Return<HdrInfo> getHdrInfo() override;
    Return<BufferInfo> dequeueOutputBuffer() override;
    Return<void> releaseOutputBuffer(BufferInfo const& buffer) override;
    Return<PixelInfo> dequeuePixelBuffer() override;
    Return<void> copyFromPixelBuffer(unsigned char* destination, unsigned int length,
                                     PixelInfo& pixel) override;
    Return<void> releasePixelBuffer(PixelInfo const& pixel) override;
    Return<void> queueNativeBuffer(std::shared_ptr<NativeBuffer> buffer) override;
    Return<std::shared_ptr<NativeBuffer>> dequeueNativeBuffer() override;
    Return<RenderEvent> dequeueRenderEvent() override;
    Return<void> reconfigureOutputBuffer(CodecType type, Configuration const& config) override;
    Return<void> flush() override;
    Return<void> getInputBufferStatus(unsigned int* freeBytes, unsigned int* totalBytes,
                                      bool* ready) override;
    Return<Configuration> getConfiguration() override;
    Return<std::int64_t> currentSTCTime() override;
    Return<void> testConnection() override;
    Return<void> testInvalidConnection() override;
    Return<void> testWriteInputData(unsigned char const* data, unsigned int length,
                                    unsigned int flags) override;

private:
    std::shared_ptr<IVideoDecoderClient> mClient;
};

}  // namespace kvo::media::hardware
