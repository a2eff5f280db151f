#include "kvo/media/hardware/VideoDecoderClientWrapper.h"

#include <utility>

#include "host/ForwardToClient.h"

namespace kvo::media::hardware {

VideoDecoderClientWrapper::VideoDecoderClientWrapper(std::shared_ptr<IVideoDecoderClient> client)
    : mClient(std::move(client)) {
    if (mClient != nullptr) {
        host::noteWrapper(this);
    }
}

VideoDecoderClientWrapper::~VideoDecoderClientWrapper() {
    if (mClient != nullptr) {
        host::forgetWrapper(this);
    }
}

Return<void> VideoDecoderClientWrapper::configureTunnelMode(CodecType type,
                                                            Configuration const& config) {
    return host::configuring(this, __func__, config, [&](char const* name) {
        return forward(this, mClient, name, &IVideoDecoderClient::configureTunnelMode, type,
                       config);
    });
}

Return<void> VideoDecoderClientWrapper::configureReferenceMode(CodecType type,
                                                               Configuration const& config) {
    return host::configuring(this, __func__, config, [&](char const* name) {
        return forward(this, mClient, name, &IVideoDecoderClient::configureReferenceMode, type,
                       config);
    });
}

Return<void> VideoDecoderClientWrapper::configurePixelMode(CodecType type,
                                                           Configuration const& config) {
    return host::configuring(this, __func__, config, [&](char const* name) {
        return forward(this, mClient, name, &IVideoDecoderClient::configurePixelMode, type, config);
    });
}

Return<void> VideoDecoderClientWrapper::configureNativeBufferMode(CodecType type,
                                                                  Configuration const& config) {
    return host::configuring(this, __func__, config, [&](char const* name) {
        return forward(this, mClient, name, &IVideoDecoderClient::configureNativeBufferMode, type,
                       config);
    });
}

Return<void> VideoDecoderClientWrapper::release() {
    return host::noteReleased(this,
                              forward(this, mClient, __func__, &IVideoDecoderClient::release));
}

Return<void> VideoDecoderClientWrapper::writeInputData(unsigned char const* data,
                                                       unsigned int length, unsigned int flags) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::writeInputData, data, length,
                   flags);
}

Return<void> VideoDecoderClientWrapper::writeInputFrame(unsigned int flags,
                                                        unsigned long long timestampUs,
                                                        unsigned char const* data,
                                                        unsigned int length) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::writeInputFrame, flags,
                   timestampUs, data, length);
}

Return<void> VideoDecoderClientWrapper::writeInputEndOfStream() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::writeInputEndOfStream);
}

Return<void> VideoDecoderClientWrapper::writeHdrInfo(ColorAspect const& aspect,
                                                     HdrInfo const& info) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::writeHdrInfo, aspect, info);
}

Return<void> VideoDecoderClientWrapper::pause() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::pause);
}

Return<void> VideoDecoderClientWrapper::resume() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::resume);
}

Return<void> VideoDecoderClientWrapper::step() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::step);
}

Return<void> VideoDecoderClientWrapper::setTunnelPeek(bool enable) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::setTunnelPeek, enable);
}

Return<void> VideoDecoderClientWrapper::setSpeed(double speed) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::setSpeed, speed);
}

Return<FrameInfo> VideoDecoderClientWrapper::getFrameInfo() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::getFrameInfo);
}

Return<ColorAspect> VideoDecoderClientWrapper::getColorAspect() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::getColorAspect);
}

Return<HdrInfo> VideoDecoderClientWrapper::getHdrInfo() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::getHdrInfo);
}

Return<BufferInfo> VideoDecoderClientWrapper::dequeueOutputBuffer() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::dequeueOutputBuffer);
}

Return<void> VideoDecoderClientWrapper::releaseOutputBuffer(BufferInfo const& buffer) {
    host::checkPort(buffer.videoPort);
    return forward(this, mClient, __func__, &IVideoDecoderClient::releaseOutputBuffer, buffer);
}

Return<PixelInfo> VideoDecoderClientWrapper::dequeuePixelBuffer() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::dequeuePixelBuffer);
}

Return<void> VideoDecoderClientWrapper::copyFromPixelBuffer(unsigned char* destination,
                                                            unsigned int length, PixelInfo& pixel) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::copyFromPixelBuffer, destination,
                   length, pixel);
}

Return<void> VideoDecoderClientWrapper::releasePixelBuffer(PixelInfo const& pixel) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::releasePixelBuffer, pixel);
}

Return<void> VideoDecoderClientWrapper::queueNativeBuffer(std::shared_ptr<NativeBuffer> buffer) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::queueNativeBuffer,
                   std::move(buffer));
}

Return<std::shared_ptr<NativeBuffer>> VideoDecoderClientWrapper::dequeueNativeBuffer() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::dequeueNativeBuffer);
}

Return<RenderEvent> VideoDecoderClientWrapper::dequeueRenderEvent() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::dequeueRenderEvent);
}

Return<void> VideoDecoderClientWrapper::reconfigureOutputBuffer(CodecType type,
                                                                Configuration const& config) {
    host::noteReconfiguring(this, config);
    return forward(this, mClient, __func__, &IVideoDecoderClient::reconfigureOutputBuffer, type,
                   config);
}

Return<void> VideoDecoderClientWrapper::flush() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::flush);
}

Return<void> VideoDecoderClientWrapper::getInputBufferStatus(unsigned int* freeBytes,
                                                             unsigned int* totalBytes,
                                                             bool* ready) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::getInputBufferStatus, freeBytes,
                   totalBytes, ready);
}

Return<Configuration> VideoDecoderClientWrapper::getConfiguration() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::getConfiguration);
}

Return<std::int64_t> VideoDecoderClientWrapper::currentSTCTime() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::currentSTCTime);
}

Return<void> VideoDecoderClientWrapper::testConnection() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::testConnection);
}

Return<void> VideoDecoderClientWrapper::testInvalidConnection() {
    return forward(this, mClient, __func__, &IVideoDecoderClient::testInvalidConnection);
}

Return<void> VideoDecoderClientWrapper::testWriteInputData(unsigned char const* data,
                                                           unsigned int length,
                                                           unsigned int flags) {
    return forward(this, mClient, __func__, &IVideoDecoderClient::testWriteInputData, data, length,
                   flags);
}

}  // namespace kvo::media::hardware
