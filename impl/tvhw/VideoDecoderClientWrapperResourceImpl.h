#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "CodecGrant.h"
#include "ProcessingGuard.h"
#include "ResourceClient.h"
#include "VideoDecoderClientWrapperResource.h"

namespace kvo::media::hardware {

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
    std::atomic<std::int32_t> mCallingPid{-1};      ///< Of the last complete acquisition.
    std::atomic<std::int32_t> mDisplayAcquired{0};  ///< 1 when the port was granted, not learned.
    ProcessingGuard mGuard;

private:
    bool startReclaim();
};

}  // namespace kvo::media::hardware
