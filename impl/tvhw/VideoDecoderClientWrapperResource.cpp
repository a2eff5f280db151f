#include "VideoDecoderClientWrapperResource.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "CodecGrant.h"
#include "ProcessingGuard.h"
#include "SystemUtils.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware {

namespace {

using platform::SystemUtils;

constexpr char kLogTag[] = "VideoClient";

/// When 1, the port that a released decoder had learned from its buffers is cleared.
constexpr char kClearDisplayProperty[] = "ro.vendor.kvo.omx.clear_display";

constexpr std::int32_t kAdaptiveMinWidth = 1920;
constexpr std::int32_t kAdaptiveMinHeight = 1080;
constexpr std::int32_t kMinWidth = 1280;
constexpr std::int32_t kMinHeight = 720;

constexpr std::int32_t kDefaultColorFormat = 4;
constexpr std::int32_t kFirstExactColorFormat = 5;
constexpr std::int32_t kLastExactColorFormat = 12;

/// Indexed by the CodecType's value less 1.
constexpr std::array<char const*, 12> kMimeTypes{
    "video/avc",  "video/hevc",          "video/x-vnd.on2.vp9",
    "video/av01", "video/mp4v-es",       "video/mpeg2",
    "video/3gpp", "video/mjpeg",         "video/dolby-vision",
    "",           "video/x-vnd.on2.vp8", "video/vvc"};

char const* mimeType(CodecType type) {
    auto const value = static_cast<std::int32_t>(type);
    bool const known = value >= 1 && value <= static_cast<std::int32_t>(kMimeTypes.size());
    return known ? kMimeTypes[static_cast<std::size_t>(value) - 1] : "";
}

}  // namespace

// --- The state of a wrapper.

/// The state of a decoder wrapper and the resource manager's way to it.
///
/// Acquisition and release take no lock and belong to the owner's thread. What other threads use
/// meanwhile is atomic; what a reclaim and the calls in flight share is in mGuard.
class KVO_MEDIA_HIDDEN VideoDecoderClientWrapperResource::Impl
    : public ResourceClient::Reclaimable,
      public std::enable_shared_from_this<Impl> {
public:
    explicit Impl(std::shared_ptr<IVideoDecoderClient> const& client) : mClient(client) {}

    /// Gives back what is held; may run on the reclaim's thread.
    ~Impl() override;

    /// Stops the client; see ProcessingGuard. Always returns true.
    bool reclaim() override;

    /// Acquires a core that fits `type` and `config`, unless one is recorded. Returns 0, or -1;
    /// what was acquired before the failure stays held until the next attempt, which keeps a core
    /// of known type of which only the id could not be read, or until it is given back.
    int acquireResources(CodecType type, Configuration const* config);

    /// Acquires a display port, unless one was granted or learned. Returns 0, also when the grant
    /// cannot be read, or -1.
    int acquireDisplayResources();

    /// Clears both display ports or, if not `all`, that of mVdoPort. Returns 0, or -1.
    int clearDisplayResources(bool all);

    /// Gives back everything and returns to the state after construction, but for mCallingPid; by
    /// the property, clears a learned port first. Without a resource client does nothing.
    void releaseResource();

    /// Takes over the port on which a buffer was shown, if it is a valid one and none was granted.
    void learnPort(BufferInfo const& buffer);

    /// Whether a grant is written with the resource client's id.
    enum class ResourceId : bool { kOmitted, kWritten };

    /// Writes what was granted into `config`.
    void writeGrant(Configuration& config, ResourceId resourceId) const;

    std::weak_ptr<IVideoDecoderClient> mClient;
    CodecGrant mGrant;
    Relaxed<std::int32_t> mCallingPid{-1};      ///< Of the last complete acquisition.
    Relaxed<std::int32_t> mDisplayAcquired{0};  ///< 1 when the port was granted, not learned.
    ProcessingGuard mGuard;

private:
    bool startReclaim();
};

VideoDecoderClientWrapperResource::Impl::~Impl() {
    releaseResources(mGrant.mResourceClient);
    mGrant.mResourceClient = nullptr;
}

int VideoDecoderClientWrapperResource::Impl::acquireResources(CodecType type,
                                                              Configuration const* config) {
    if (mGrant.mCoreType != 0) {
        TVHW_LOG(kLogState, "Already acquired resource mCoreType=%d", mGrant.mCoreType);
        return 0;
    }
    mGrant.mResourceClient = initializeResource(shared_from_this());
    if (mGrant.mResourceClient == nullptr) {
        TVHW_LOG(kLogRefused, "acquire resource not implement");
        mGrant.forgetSizes();
        return -1;
    }

    std::int32_t width = config->getInt32(key::kWidth, 0);
    std::int32_t height = config->getInt32(key::kHeight, 0);
    std::int32_t const adaptive = config->getInt32(key::kAdaptiveEnable, 0);
    std::int32_t const adaptiveMaxWidth = config->getInt32(key::kAdaptiveMaxWidth, 0);
    std::int32_t const adaptiveMaxHeight = config->getInt32(key::kAdaptiveMaxHeight, 0);
    std::int32_t const frameRate = config->getInt32(key::kFrameRate, 0);
    std::int32_t const callingPid = config->getInt32(key::kCallingPid, 0);
    std::int32_t const colorFormat = config->getInt32(key::kColorFormat, kDefaultColorFormat);
    TVHW_LOG(kLogDetail,
             "acquire-resource: adaptive=%u, w/h=%u/%u, max=%u/%u, calling-pid=%d, color=%d",
             adaptive, width, height, adaptiveMaxWidth, adaptiveMaxHeight, callingPid, colorFormat);

    if (adaptive != 0) {
        width = std::max({width, adaptiveMaxWidth, kAdaptiveMinWidth});
        height = std::max({height, adaptiveMaxHeight, kAdaptiveMinHeight});
    } else if (colorFormat < kFirstExactColorFormat || colorFormat > kLastExactColorFormat) {
        width = std::max(width, kMinWidth);
        height = std::max(height, kMinHeight);
    }

    bool const tryOnly =
        callingPid >= 1 && !SystemUtils::getInstance().allowsForcedAcquire(callingPid);
    CodecGrant::Request const request{mimeType(type), width, height, frameRate, false, tryOnly};
    if (int const ret = mGrant.acquire(TVHW_LOG_SITE, request, &mDisplayAcquired); ret != 0) {
        return ret;
    }
    mCallingPid.store(callingPid);
    return 0;
}

void VideoDecoderClientWrapperResource::Impl::releaseResource() {
    if (mGrant.mResourceClient == nullptr) {
        return;
    }
    if (SystemUtils::getInstance().getIntProperty(kClearDisplayProperty, 0) == 1 &&
        mDisplayAcquired.load() == 0) {
        clearDisplayResources(false);
    }
    mGrant.giveBack();
    mDisplayAcquired.store(0);
}

int VideoDecoderClientWrapperResource::Impl::acquireDisplayResources() {
    std::int32_t const held = mGrant.mVdoPort.load();
    if (held != -1) {
        TVHW_LOG(kLogState, "Already acquired display resource mVdoPort=%d", held);
        return 0;
    }
    if (mGrant.mResourceClient == nullptr) {
        TVHW_LOG(kLogState, "acquire resource client not init");
        mGrant.mResourceClient = initializeResource(shared_from_this());
    }
    if (mGrant.mResourceClient == nullptr ||
        mGrant.mResourceClient->acquireDisplayResource(false) != 0) {
        TVHW_LOG(kLogRefused, "acquire display resource fail");
        return -1;
    }

    int grantedPort = 0;
    if (mGrant.mResourceClient->getDisplayResource(&grantedPort) != 0) {
        return 0;
    }
    std::int32_t const port = CodecGrant::portIndex(grantedPort);
    if (port < 0) {
        TVHW_LOG(kLogFailure, "vdoPort=TVHW_CRM_VIDEO_PORT_NONE");
        mGrant.mVdoPort.store(-1);
        return -1;
    }
    mDisplayAcquired.store(1);
    mGrant.mVdoPort.store(port);
    TVHW_LOG(kLogState, "vdoPort=%d", port);
    return 0;
}

int VideoDecoderClientWrapperResource::Impl::clearDisplayResources(bool all) {
    if (mGrant.mResourceClient == nullptr) {
        TVHW_LOG(kLogState, "resource client not init");
        mGrant.mResourceClient = initializeResource(shared_from_this());
    }
    std::int32_t const port = mGrant.mVdoPort.load();
    if (!all && (port < 0 || port >= ResourceClient::sMaxVdoPort)) {
        return -1;
    }
    _TVHW_CRM_VIDEO_PORT const ports = all ? TVHW_CRM_VIDEO_PORT_ALL : CodecGrant::portBit(port);
    TVHW_LOG(kLogState, "clear display resource all %u, port %d", all ? 1U : 0U, port);
    if (mGrant.mResourceClient != nullptr &&
        mGrant.mResourceClient->clearDisplayResource(ports) == 0) {
        return 0;
    }
    TVHW_LOG(kLogRefused, "clear display resource fail");
    return -1;
}

void VideoDecoderClientWrapperResource::Impl::learnPort(BufferInfo const& buffer) {
    if (mDisplayAcquired.load() != 1 && buffer.videoPort >= 0 &&
        buffer.videoPort < ResourceClient::sMaxVdoPort) {
        mGrant.mVdoPort.store(buffer.videoPort);
    }
}

void VideoDecoderClientWrapperResource::Impl::writeGrant(Configuration& config,
                                                         ResourceId resourceId) const {
    config.setInt32(key::kResourceCoreType, mGrant.mCoreType);
    if (resourceId == ResourceId::kWritten) {
        config.setInt32(key::kResourceId, mGrant.mResourceId.load());
    }
    config.setInt32(key::kVideoPort, mGrant.mVdoPort.load());
    config.setInt32(key::kMaxWidth, mGrant.mMaxWidth);
    config.setInt32(key::kMaxHeight, mGrant.mMaxHeight);
}

bool VideoDecoderClientWrapperResource::Impl::startReclaim() {
    return mGuard.startReclaim(TVHW_LOG_SITE);
}

bool VideoDecoderClientWrapperResource::Impl::reclaim() {
    TVHW_LOG(kLogState, "reclaim: start, calling-pid=%d", mCallingPid.load());
    auto const client = mClient.lock();
    bool const ok = startReclaim();
    if (client != nullptr && ok) {
        client->release();
        if (auto const pid = mCallingPid.load(); pid >= 1) {
            SystemUtils::getInstance().onProcessReclaimed(pid);
        }
        mGuard.finishReclaim();
    }
    TVHW_LOG(kLogState, "reclaim: end");
    return true;
}

// --- The wrapper.

VideoDecoderClientWrapperResource::VideoDecoderClientWrapperResource(
    // NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is the callers' contract.
    std::shared_ptr<IVideoDecoderClient> client)
    : VideoDecoderClientWrapper(client), mImpl(std::make_shared<Impl>(client)) {}

VideoDecoderClientWrapperResource::~VideoDecoderClientWrapperResource() { releaseInternal(); }

Return<void> VideoDecoderClientWrapperResource::release() { return releaseInternal(); }

Return<void> VideoDecoderClientWrapperResource::releaseInternal() {
    bool const reclaimed = mImpl->mGuard.ifReclaimed([&] {
        if (auto const pid = mImpl->mCallingPid.load(); pid >= 1) {
            SystemUtils::getInstance().onReclaimedClientReleased(pid);
        }
    });
    if (reclaimed) {
        return status::kSuccess;
    }
    Return<void> result = VideoDecoderClientWrapper::release();
    mImpl->releaseResource();
    return result;
}

Return<void> VideoDecoderClientWrapperResource::configureTunnelMode(CodecType type,
                                                                    Configuration const& config) {
    Configuration granted = config;
    if (int const ret = mImpl->acquireResources(type, &granted); ret < 0) {
        return Status(ret);
    }
    if (int const ret = mImpl->acquireDisplayResources(); ret < 0) {
        mImpl->releaseResource();
        return Status(ret);
    }
    return whileProcessing(mImpl->mGuard, [&] {
        mImpl->writeGrant(granted, Impl::ResourceId::kWritten);
        return VideoDecoderClientWrapper::configureTunnelMode(type, granted);
    });
}

Return<void> VideoDecoderClientWrapperResource::configureReferenceMode(
    CodecType type, Configuration const& config) {
    Configuration granted = config;
    if (int const ret = mImpl->acquireResources(type, &granted); ret < 0) {
        return Status(ret);
    }
    return whileProcessing(mImpl->mGuard, [&] {
        mImpl->writeGrant(granted, Impl::ResourceId::kWritten);
        return VideoDecoderClientWrapper::configureReferenceMode(type, granted);
    });
}

Return<void> VideoDecoderClientWrapperResource::configurePixelMode(CodecType type,
                                                                   Configuration const& config) {
    Configuration granted = config;
    if (int const ret = mImpl->acquireResources(type, &granted); ret < 0) {
        return Status(ret);
    }
    if (int const ret = mImpl->clearDisplayResources(true); ret < 0) {
        return Status(ret);
    }
    return whileProcessing(mImpl->mGuard, [&] {
        mImpl->writeGrant(granted, Impl::ResourceId::kWritten);
        return VideoDecoderClientWrapper::configurePixelMode(type, granted);
    });
}

Return<void> VideoDecoderClientWrapperResource::configureNativeBufferMode(
    CodecType type, Configuration const& config) {
    Configuration granted = config;
    if (int const ret = mImpl->acquireResources(type, &granted); ret < 0) {
        return Status(ret);
    }
    return whileProcessing(mImpl->mGuard, [&] {
        mImpl->writeGrant(granted, Impl::ResourceId::kWritten);
        return VideoDecoderClientWrapper::configureNativeBufferMode(type, granted);
    });
}

Return<void> VideoDecoderClientWrapperResource::reconfigureOutputBuffer(
    CodecType type, Configuration const& config) {
    return whileProcessing(mImpl->mGuard, [&]() -> Return<void> {
        mImpl->releaseResource();
        Configuration granted = config;
        if (int const ret = mImpl->acquireResources(type, &granted); ret < 0) {
            return Status(ret);
        }
        mImpl->writeGrant(granted, Impl::ResourceId::kOmitted);
        return VideoDecoderClientWrapper::reconfigureOutputBuffer(type, granted);
    });
}

Return<void> VideoDecoderClientWrapperResource::writeInputData(unsigned char const* data,
                                                               unsigned int length,
                                                               unsigned int flags) {
    return whileProcessing(mImpl->mGuard, [&] {
        return VideoDecoderClientWrapper::writeInputData(data, length, flags);
    });
}

Return<void> VideoDecoderClientWrapperResource::writeInputFrame(unsigned int flags,
                                                                unsigned long long timestampUs,
                                                                unsigned char const* data,
                                                                unsigned int length) {
    return whileProcessing(mImpl->mGuard, [&] {
        return VideoDecoderClientWrapper::writeInputFrame(flags, timestampUs, data, length);
    });
}

Return<void> VideoDecoderClientWrapperResource::writeInputEndOfStream() {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoDecoderClientWrapper::writeInputEndOfStream(); });
}

Return<void> VideoDecoderClientWrapperResource::writeHdrInfo(ColorAspect const& aspect,
                                                             HdrInfo const& info) {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoDecoderClientWrapper::writeHdrInfo(aspect, info); });
}

Return<BufferInfo> VideoDecoderClientWrapperResource::dequeueOutputBuffer() {
    // One object is filled and returned: a buffer comes with every frame, and is not copied.
    return whileProcessing(mImpl->mGuard, [&] {
        Return<BufferInfo> result = VideoDecoderClientWrapper::dequeueOutputBuffer();
        if (result.status().isError()) {
            result = result.status();
            return result;
        }
        BufferInfo& buffer = result.value();
        buffer.videoPort = mImpl->mGrant.mVdoPort.load();
        buffer.resourceId = mImpl->mGrant.mResourceId.load();
        buffer.callingPid = mImpl->mCallingPid.load();
        if (result.status().code() != status::kSuccess.code()) {
            result = {status::kSuccess, buffer};
        }
        return result;
    });
}

Return<void> VideoDecoderClientWrapperResource::releaseOutputBuffer(BufferInfo const& buffer) {
    return whileProcessing(mImpl->mGuard, [&] {
        mImpl->learnPort(buffer);
        return VideoDecoderClientWrapper::releaseOutputBuffer(buffer);
    });
}

Return<PixelInfo> VideoDecoderClientWrapperResource::dequeuePixelBuffer() {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoDecoderClientWrapper::dequeuePixelBuffer(); });
}

Return<void> VideoDecoderClientWrapperResource::copyFromPixelBuffer(unsigned char* destination,
                                                                    unsigned int length,
                                                                    PixelInfo& pixel) {
    return whileProcessing(mImpl->mGuard, [&] {
        return VideoDecoderClientWrapper::copyFromPixelBuffer(destination, length, pixel);
    });
}

Return<void> VideoDecoderClientWrapperResource::releasePixelBuffer(PixelInfo const& pixel) {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoDecoderClientWrapper::releasePixelBuffer(pixel); });
}

Return<void> VideoDecoderClientWrapperResource::queueNativeBuffer(
    std::shared_ptr<NativeBuffer> buffer) {
    return whileProcessing(mImpl->mGuard, [&] {
        return VideoDecoderClientWrapper::queueNativeBuffer(std::move(buffer));
    });
}

Return<std::shared_ptr<NativeBuffer>> VideoDecoderClientWrapperResource::dequeueNativeBuffer() {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoDecoderClientWrapper::dequeueNativeBuffer(); });
}

Return<RenderEvent> VideoDecoderClientWrapperResource::dequeueRenderEvent() {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoDecoderClientWrapper::dequeueRenderEvent(); });
}

Return<void> VideoDecoderClientWrapperResource::flush() {
    return whileProcessing(
        mImpl->mGuard, [&] { return VideoDecoderClientWrapper::flush(); }, status::kSuccess);
}

Return<void> VideoDecoderClientWrapperResource::getInputBufferStatus(unsigned int* freeBytes,
                                                                     unsigned int* totalBytes,
                                                                     bool* ready) {
    return whileProcessing(mImpl->mGuard, [&] {
        return VideoDecoderClientWrapper::getInputBufferStatus(freeBytes, totalBytes, ready);
    });
}

Return<Configuration> VideoDecoderClientWrapperResource::getConfiguration() {
    return whileProcessing(mImpl->mGuard,
                           [&] { return VideoDecoderClientWrapper::getConfiguration(); });
}

}  // namespace kvo::media::hardware

std::shared_ptr<ResourceClient> initializeResource(
    std::shared_ptr<ResourceClient::Reclaimable> const& owner) {
    return ResourceClient::open(owner);
}
