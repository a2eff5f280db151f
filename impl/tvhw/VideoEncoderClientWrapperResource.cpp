#include "VideoEncoderClientWrapperResource.h"

#include <cstdint>

#include "CodecGrant.h"
#include "ProcessingGuard.h"
#include "kvo/media/hardware/CodecType.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware {

namespace {

constexpr char kLogTag[] = "VideoEncClient";

/// The core type that the encoder is told about.
constexpr std::int32_t kSpecialCoreType = 802;

char const* mimeType(CodecType type) {
    switch (type) {
        case CodecType::AVC:
            return "video/avc";
        case CodecType::VP8:
            return "video/x-vnd.on2.vp8";
        default:
            return "";
    }
}

}  // namespace

// --- The state of a wrapper.

/// The state of an encoder wrapper and the resource manager's way to it: as the decoder's, without
/// display ports and with the right to refuse a reclaim.
class KVO_MEDIA_HIDDEN VideoEncoderClientWrapperResource::Impl
    : public ResourceClient::Reclaimable,
      public std::enable_shared_from_this<Impl> {
public:
    explicit Impl(std::shared_ptr<IVideoEncoderClient> const& client) : mClient(client) {}

    /// Gives back what is held; may run on the reclaim's thread.
    ~Impl() override;

    /// Stops the client and returns true, or, while live streaming, does nothing and returns false.
    bool reclaim() override;

    /// As the decoder's, but returns 0 without a core when there is no resource manager.
    int acquireResources(CodecType type, Configuration const* config);

    /// Gives back everything and returns to the state after construction, but for mLiveStreaming.
    /// Without a resource client does nothing.
    void releaseResource();

    std::weak_ptr<IVideoEncoderClient> mClient;
    CodecGrant mGrant;
    /// Not 0: refuses reclaim. Of the last complete acquisition.
    Relaxed<std::int32_t> mLiveStreaming{0};
    ProcessingGuard mGuard;

private:
    bool startReclaim();
};

VideoEncoderClientWrapperResource::Impl::~Impl() {
    releaseResources(mGrant.mResourceClient);
    mGrant.mResourceClient = nullptr;
}

int VideoEncoderClientWrapperResource::Impl::acquireResources(CodecType type,
                                                              Configuration const* config) {
    if (mGrant.mCoreType != 0) {
        TVHW_LOG(kLogState, "Already acquired resource mCoreType=%d", mGrant.mCoreType);
        return 0;
    }
    mGrant.mResourceClient = initializeResourceClient(shared_from_this());
    if (mGrant.mResourceClient == nullptr) {
        TVHW_LOG(kLogRefused, "acquire resource not implement");
        mGrant.forgetSizes();
        return 0;
    }

    std::int32_t const width = config->getInt32(key::kWidth, 0);
    std::int32_t const height = config->getInt32(key::kHeight, 0);
    std::int32_t const frameRate = config->getInt32(key::kFrameRate, 0);
    TVHW_LOG(kLogDetail, "acquire-resource: w/h=%u/%u, framerate=%u", width, height, frameRate);
    CodecGrant::Request const request{mimeType(type), width, height, frameRate, true, false};
    if (int const ret = mGrant.acquire(TVHW_LOG_SITE, request, nullptr); ret != 0) {
        return ret;
    }
    mLiveStreaming.store(config->getInt32(key::kUseDmaBuffer, 0));
    return 0;
}

void VideoEncoderClientWrapperResource::Impl::releaseResource() {
    if (mGrant.mResourceClient != nullptr) {
        mGrant.giveBack();
    }
}

bool VideoEncoderClientWrapperResource::Impl::startReclaim() {
    return mGuard.startReclaim(TVHW_LOG_SITE);
}

bool VideoEncoderClientWrapperResource::Impl::reclaim() {
    if (mLiveStreaming.load() != 0) {
        TVHW_LOG(kLogRefused, "live streaming, reject reclaim");
        return false;
    }
    TVHW_LOG(kLogState, "reclaim: start");
    auto const client = mClient.lock();
    bool const ok = startReclaim();
    if (client != nullptr && ok) {
        client->release();
        mGuard.finishReclaim();
    }
    TVHW_LOG(kLogState, "reclaim: end");
    return true;
}

// --- The wrapper.

VideoEncoderClientWrapperResource::VideoEncoderClientWrapperResource(
    // NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is the callers' contract.
    std::shared_ptr<IVideoEncoderClient> client)
    : VideoEncoderClientWrapper(client), mImpl(std::make_shared<Impl>(client)) {}

VideoEncoderClientWrapperResource::~VideoEncoderClientWrapperResource() { releaseInternal(); }

Return<void> VideoEncoderClientWrapperResource::release() { return releaseInternal(); }

Return<void> VideoEncoderClientWrapperResource::releaseInternal() {
    if (mImpl->mGuard.ifReclaimed([] {})) {
        return status::kSuccess;
    }
    Return<void> result = VideoEncoderClientWrapper::release();
    mImpl->releaseResource();
    return result;
}

Return<void> VideoEncoderClientWrapperResource::configure(Configuration const& config) {
    Configuration granted = config;
    auto const type = static_cast<CodecType>(config.getInt32(key::kOutFormat, 0));
    if (int const ret = mImpl->acquireResources(type, &granted); ret < 0) {
        return Status(ret);
    }
    return whileProcessing(mImpl->mGuard, [&] {
        bool const isSpecial = mImpl->mGrant.mCoreType == kSpecialCoreType;
        granted.setInt32(key::kCoreType, isSpecial ? 1 : 0);
        return VideoEncoderClientWrapper::configure(granted);
    });
}

Return<void> VideoEncoderClientWrapperResource::writeColorAspect(ColorAspect const& aspect) {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoEncoderClientWrapper::writeColorAspect(aspect); });
}

Return<void> VideoEncoderClientWrapperResource::writeInputFrame(unsigned long long timestampUs,
                                                                unsigned char const* data,
                                                                unsigned int length) {
    return whileProcessing(mImpl->mGuard, [&] {
        return VideoEncoderClientWrapper::writeInputFrame(timestampUs, data, length);
    });
}

Return<void> VideoEncoderClientWrapperResource::writeInputImage(unsigned long long timestampUs,
                                                                Image const& image) {
    return whileProcessing(mImpl->mGuard, [&] {
        return VideoEncoderClientWrapper::writeInputImage(timestampUs, image);
    });
}

Return<int> VideoEncoderClientWrapperResource::readOutputFrame(unsigned long long* timestampUs,
                                                               unsigned char* data,
                                                               unsigned int* length,
                                                               PicType* type) {
    return whileProcessing(mImpl->mGuard, [&] {
        return VideoEncoderClientWrapper::readOutputFrame(timestampUs, data, length, type);
    });
}

Return<void> VideoEncoderClientWrapperResource::pause() {
    return whileProcessing(
        mImpl->mGuard, [&] { return VideoEncoderClientWrapper::pause(); }, status::kSuccess);
}

Return<void> VideoEncoderClientWrapperResource::resume() {
    return whileProcessing(
        mImpl->mGuard, [&] { return VideoEncoderClientWrapper::resume(); }, status::kSuccess);
}

Return<void> VideoEncoderClientWrapperResource::flush() {
    return whileProcessing(
        mImpl->mGuard, [&] { return VideoEncoderClientWrapper::flush(); }, status::kSuccess);
}

Return<void> VideoEncoderClientWrapperResource::setParameters(Configuration const& config) {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoEncoderClientWrapper::setParameters(config); });
}

Return<void> VideoEncoderClientWrapperResource::getInputBufferStatus(unsigned int* freeBuffers,
                                                                     unsigned int* totalBuffers,
                                                                     int* width, int* height,
                                                                     int* stride) {
    return whileProcessing(mImpl->mGuard, [&] {
        return VideoEncoderClientWrapper::getInputBufferStatus(freeBuffers, totalBuffers, width,
                                                               height, stride);
    });
}

Return<Configuration> VideoEncoderClientWrapperResource::getConfiguration() {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoEncoderClientWrapper::getConfiguration(); });
}

}  // namespace kvo::media::hardware

std::shared_ptr<ResourceClient> initializeResourceClient(
    std::shared_ptr<ResourceClient::Reclaimable> const& owner) {
    return ResourceClient::open(owner);
}
