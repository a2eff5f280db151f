#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

#include <utility>

#include "host/ForwardToClient.h"

namespace kvo::media::hardware {

VideoEncoderClientWrapper::VideoEncoderClientWrapper(std::shared_ptr<IVideoEncoderClient> client)
    : mClient(std::move(client)) {
    if (mClient != nullptr) {
        host::noteWrapper(this);
    }
}

VideoEncoderClientWrapper::~VideoEncoderClientWrapper() {
    if (mClient != nullptr) {
        host::forgetWrapper(this);
    }
}

Return<void> VideoEncoderClientWrapper::configure(Configuration const& config) {
    return host::configuring(this, __func__, config, [&](char const* name) {
        return forward(this, mClient, name, &IVideoEncoderClient::configure, config);
    });
}

Return<void> VideoEncoderClientWrapper::release() {
    return host::noteReleased(this,
                              forward(this, mClient, __func__, &IVideoEncoderClient::release));
}

Return<void> VideoEncoderClientWrapper::writeColorAspect(ColorAspect const& aspect) {
    return forward(this, mClient, __func__, &IVideoEncoderClient::writeColorAspect, aspect);
}

Return<void> VideoEncoderClientWrapper::writeInputFrame(unsigned long long timestampUs,
                                                        unsigned char const* data,
                                                        unsigned int length) {
    return forward(this, mClient, __func__, &IVideoEncoderClient::writeInputFrame, timestampUs,
                   data, length);
}

Return<void> VideoEncoderClientWrapper::writeInputImage(unsigned long long timestampUs,
                                                        Image const& image) {
    return forward(this, mClient, __func__, &IVideoEncoderClient::writeInputImage, timestampUs,
                   image);
}

Return<int> VideoEncoderClientWrapper::readOutputFrame(unsigned long long* timestampUs,
                                                       unsigned char* data, unsigned int* length,
                                                       PicType* type) {
    return forward(this, mClient, __func__, &IVideoEncoderClient::readOutputFrame, timestampUs,
                   data, length, type);
}

Return<void> VideoEncoderClientWrapper::pause() {
    return forward(this, mClient, __func__, &IVideoEncoderClient::pause);
}

Return<void> VideoEncoderClientWrapper::resume() {
    return forward(this, mClient, __func__, &IVideoEncoderClient::resume);
}

Return<void> VideoEncoderClientWrapper::flush() {
    return forward(this, mClient, __func__, &IVideoEncoderClient::flush);
}

Return<void> VideoEncoderClientWrapper::setParameters(Configuration const& config) {
    return forward(this, mClient, __func__, &IVideoEncoderClient::setParameters, config);
}

Return<void> VideoEncoderClientWrapper::getInputBufferStatus(unsigned int* freeBuffers,
                                                             unsigned int* totalBuffers, int* width,
                                                             int* height, int* stride) {
    return forward(this, mClient, __func__, &IVideoEncoderClient::getInputBufferStatus, freeBuffers,
                   totalBuffers, width, height, stride);
}

Return<Configuration> VideoEncoderClientWrapper::getConfiguration() {
    return forward(this, mClient, __func__, &IVideoEncoderClient::getConfiguration);
}

}  // namespace kvo::media::hardware
