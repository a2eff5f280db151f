#pragma once

#include <memory>

#include "kvo/media/hardware/Export.h"
#include "kvo/media/hardware/IVideoEncoderClient.h"

namespace kvo::media::hardware {

/// An encoder that forwards every operation to its client and returns the client's result. Defined
/// in libkvo_media_hw_common; without a client every operation of the host platform's fails with
/// -22.
class KVO_MEDIA_EXPORT VideoEncoderClientWrapper : public IVideoEncoderClient {
public:
    /// Keeps `client` alive for as long as the wrapper lives.
    explicit VideoEncoderClientWrapper(std::shared_ptr<IVideoEncoderClient> client);
    ~VideoEncoderClientWrapper() override;

    Return<void> configure(Configuration const& config) override;
    Return<void> release() override;
    Return<void> writeColorAspect(ColorAspect const& aspect) override;
    Return<void> writeInputFrame(unsigned long long timestampUs, unsigned char const* data,
                                 unsigned int length) override;
    Return<void> writeInputImage(unsigned long long timestampUs, Image const& image) override;
    Return<int> readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                unsigned int* length, PicType* type) override;
    Return<void> pause() override;
    Return<void> resume() override;
    Return<void> flush() override;
    Return<void> setParameters(Configuration const& config) override;
    Return<void> getInputBufferStatus(unsigned int* freeBuffers, unsigned int* totalBuffers,
                                      int* width, int* height, int* stride) override;
    Return<Configuration> getConfiguration() override;

private:
    std::shared_ptr<IVideoEncoderClient> mClient;
};

}  // namespace kvo::media::hardware
