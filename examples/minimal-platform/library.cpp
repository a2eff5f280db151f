// The map of settings and the wrapper bases, which hand each operation to the codec.

#include <cerrno>
#include <memory>
#include <utility>

#include "kvo/media/hardware/KeyValueMap.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::media::hardware {

KeyValueMap::~KeyValueMap() = default;

void KeyValueMap::setInt32(char const* key, std::int32_t value) { mValues[key] = value; }

std::int32_t KeyValueMap::getInt32(char const* key, std::int32_t defaultValue) const {
    return static_cast<std::int32_t>(getInt64(key, defaultValue));
}

void KeyValueMap::setInt64(char const* key, std::int64_t value) { mValues[key] = value; }

std::int64_t KeyValueMap::getInt64(char const* key, std::int64_t defaultValue) const {
    auto const entry = mValues.find(key);
    return entry == mValues.end() ? defaultValue : entry->second;
}

template <typename Client, typename Result, typename... Parameters, typename... Arguments>
static Result forward(std::shared_ptr<Client> const& client,
                      Result (Client::*operation)(Parameters...), Arguments&&... arguments) {
    return client == nullptr ? Result(Status(-EINVAL))
                             : ((*client).*operation)(std::forward<Arguments>(arguments)...);
}

using Decoder = IVideoDecoderClient;

VideoDecoderClientWrapper::VideoDecoderClientWrapper(std::shared_ptr<Decoder> client)
    : mClient(std::move(client)) {}

VideoDecoderClientWrapper::~VideoDecoderClientWrapper() = default;

Return<void> VideoDecoderClientWrapper::configureTunnelMode(CodecType type,
                                                            Configuration const& config) {
    return forward(mClient, &Decoder::configureTunnelMode, type, config);
}

Return<void> VideoDecoderClientWrapper::configureReferenceMode(CodecType type,
                                                               Configuration const& config) {
    return forward(mClient, &Decoder::configureReferenceMode, type, config);
}

Return<void> VideoDecoderClientWrapper::configurePixelMode(CodecType type,
                                                           Configuration const& config) {
    return forward(mClient, &Decoder::configurePixelMode, type, config);
}

Return<void> VideoDecoderClientWrapper::configureNativeBufferMode(CodecType type,
                                                                  Configuration const& config) {
    return forward(mClient, &Decoder::configureNativeBufferMode, type, config);
}

Return<void> VideoDecoderClientWrapper::release() { return forward(mClient, &Decoder::release); }

Return<void> VideoDecoderClientWrapper::writeInputData(unsigned char const* data,
                                                       unsigned int length, unsigned int flags) {
    return forward(mClient, &Decoder::writeInputData, data, length, flags);
}

Return<void> VideoDecoderClientWrapper::writeInputFrame(unsigned int flags,
                                                        unsigned long long timestampUs,
                                                        unsigned char const* data,
                                                        unsigned int length) {
    return forward(mClient, &Decoder::writeInputFrame, flags, timestampUs, data, length);
}

Return<void> VideoDecoderClientWrapper::writeInputEndOfStream() {
    return forward(mClient, &Decoder::writeInputEndOfStream);
}

Return<void> VideoDecoderClientWrapper::writeHdrInfo(ColorAspect const& aspect,
                                                     HdrInfo const& info) {
    return forward(mClient, &Decoder::writeHdrInfo, aspect, info);
}

Return<void> VideoDecoderClientWrapper::pause() { return forward(mClient, &Decoder::pause); }

Return<void> VideoDecoderClientWrapper::resume() { return forward(mClient, &Decoder::resume); }

Return<void> VideoDecoderClientWrapper::step() { return forward(mClient, &Decoder::step); }

Return<void> VideoDecoderClientWrapper::setTunnelPeek(bool enable) {
    return forward(mClient, &Decoder::setTunnelPeek, enable);
}

Return<void> VideoDecoderClientWrapper::setSpeed(double speed) {
    return forward(mClient, &Decoder::setSpeed, speed);
}

Return<FrameInfo> VideoDecoderClientWrapper::getFrameInfo() {
    return forward(mClient, &Decoder::getFrameInfo);
}

Return<ColorAspect> VideoDecoderClientWrapper::getColorAspect() {
    return forward(mClient, &Decoder::getColorAspect);
}

Return<HdrInfo> VideoDecoderClientWrapper::getHdrInfo() {
    return forward(mClient, &Decoder::getHdrInfo);
}

Return<BufferInfo> VideoDecoderClientWrapper::dequeueOutputBuffer() {
    return forward(mClient, &Decoder::dequeueOutputBuffer);
}

Return<void> VideoDecoderClientWrapper::releaseOutputBuffer(BufferInfo const& buffer) {
    return forward(mClient, &Decoder::releaseOutputBuffer, buffer);
}

Return<PixelInfo> VideoDecoderClientWrapper::dequeuePixelBuffer() {
    return forward(mClient, &Decoder::dequeuePixelBuffer);
}

Return<void> VideoDecoderClientWrapper::copyFromPixelBuffer(unsigned char* destination,
                                                            unsigned int length, PixelInfo& pixel) {
    return forward(mClient, &Decoder::copyFromPixelBuffer, destination, length, pixel);
}

Return<void> VideoDecoderClientWrapper::releasePixelBuffer(PixelInfo const& pixel) {
    return forward(mClient, &Decoder::releasePixelBuffer, pixel);
}

Return<void> VideoDecoderClientWrapper::queueNativeBuffer(std::shared_ptr<NativeBuffer> buffer) {
    return forward(mClient, &Decoder::queueNativeBuffer, buffer);
}

Return<std::shared_ptr<NativeBuffer>> VideoDecoderClientWrapper::dequeueNativeBuffer() {
    return forward(mClient, &Decoder::dequeueNativeBuffer);
}

Return<RenderEvent> VideoDecoderClientWrapper::dequeueRenderEvent() {
    return forward(mClient, &Decoder::dequeueRenderEvent);
}

Return<void> VideoDecoderClientWrapper::reconfigureOutputBuffer(CodecType type,
                                                                Configuration const& config) {
    return forward(mClient, &Decoder::reconfigureOutputBuffer, type, config);
}

Return<void> VideoDecoderClientWrapper::flush() { return forward(mClient, &Decoder::flush); }

Return<void> VideoDecoderClientWrapper::getInputBufferStatus(unsigned int* freeBytes,
                                                             unsigned int* totalBytes,
                                                             bool* ready) {
    return forward(mClient, &Decoder::getInputBufferStatus, freeBytes, totalBytes, ready);
}

Return<Configuration> VideoDecoderClientWrapper::getConfiguration() {
    return forward(mClient, &Decoder::getConfiguration);
}

Return<std::int64_t> VideoDecoderClientWrapper::currentSTCTime() {
    return forward(mClient, &Decoder::currentSTCTime);
}

Return<void> VideoDecoderClientWrapper::testConnection() {
    return forward(mClient, &Decoder::testConnection);
}

Return<void> VideoDecoderClientWrapper::testInvalidConnection() {
    return forward(mClient, &Decoder::testInvalidConnection);
}

Return<void> VideoDecoderClientWrapper::testWriteInputData(unsigned char const* data,
                                                           unsigned int length,
                                                           unsigned int flags) {
    return forward(mClient, &Decoder::testWriteInputData, data, length, flags);
}

using Encoder = IVideoEncoderClient;

VideoEncoderClientWrapper::VideoEncoderClientWrapper(std::shared_ptr<Encoder> client)
    : mClient(std::move(client)) {}

VideoEncoderClientWrapper::~VideoEncoderClientWrapper() = default;

Return<void> VideoEncoderClientWrapper::configure(Configuration const& config) {
    return forward(mClient, &Encoder::configure, config);
}

Return<void> VideoEncoderClientWrapper::release() { return forward(mClient, &Encoder::release); }

Return<void> VideoEncoderClientWrapper::writeColorAspect(ColorAspect const& aspect) {
    return forward(mClient, &Encoder::writeColorAspect, aspect);
}

Return<void> VideoEncoderClientWrapper::writeInputFrame(unsigned long long timestampUs,
                                                        unsigned char const* data,
                                                        unsigned int length) {
    return forward(mClient, &Encoder::writeInputFrame, timestampUs, data, length);
}

Return<void> VideoEncoderClientWrapper::writeInputImage(unsigned long long timestampUs,
                                                        Image const& image) {
    return forward(mClient, &Encoder::writeInputImage, timestampUs, image);
}

Return<int> VideoEncoderClientWrapper::readOutputFrame(unsigned long long* timestampUs,
                                                       unsigned char* data, unsigned int* length,
                                                       PicType* type) {
    return forward(mClient, &Encoder::readOutputFrame, timestampUs, data, length, type);
}

Return<void> VideoEncoderClientWrapper::pause() { return forward(mClient, &Encoder::pause); }

Return<void> VideoEncoderClientWrapper::resume() { return forward(mClient, &Encoder::resume); }

Return<void> VideoEncoderClientWrapper::flush() { return forward(mClient, &Encoder::flush); }

Return<void> VideoEncoderClientWrapper::setParameters(Configuration const& config) {
    return forward(mClient, &Encoder::setParameters, config);
}

Return<void> VideoEncoderClientWrapper::getInputBufferStatus(unsigned int* freeBuffers,
                                                             unsigned int* totalBuffers, int* width,
                                                             int* height, int* stride) {
    return forward(mClient, &Encoder::getInputBufferStatus, freeBuffers, totalBuffers, width,
                   height, stride);
}

Return<Configuration> VideoEncoderClientWrapper::getConfiguration() {
    return forward(mClient, &Encoder::getConfiguration);
}

}  // namespace kvo::media::hardware
