#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "CodecGrant.h"
#include "ProcessingGuard.h"
#include "ResourceClient.h"
#include "VideoEncoderClientWrapperResource.h"
#include "kvo/media/hardware/CodecType.h"

namespace kvo::media::hardware {

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
    /// What pads the grant where pointers have 64 bits is of use to the next member.
    [[no_unique_address]] CodecGrant mGrant;
    /// Not 0: refuses reclaim. Of the last complete acquisition.
    std::atomic<std::int32_t> mLiveStreaming{0};
    ProcessingGuard mGuard;

private:
    bool startReclaim();
};

}  // namespace kvo::media::hardware
