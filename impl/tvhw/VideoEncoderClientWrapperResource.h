#pragma once

#include <memory>

#include "ResourceClient.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::media::hardware {

/// An encoder that takes a codec core from the resource manager before its client is configured,
/// and gives it back on release.
///
/// When the resource manager reclaims the core, it waits at most 3 seconds for the calls in flight,
/// releases the client and refuses every later call: with status -19 (pause(), resume() and
/// flush(): 0) and the default value, and without touching out-parameters. configure() may acquire
/// before it is refused, and release() answers 0. An encoder whose last complete acquisition was
/// for live streaming ("useDmaBuffer") refuses the reclaim instead and goes on.
///
/// Threads: configure(), release() and the destructor are the owner's, one at a time. All others
/// may be called from several threads at once, also while a reclaim runs on the resource manager's
/// thread, but not while the destructor runs: it comes after the last call has returned, also one
/// that a reclaim has given up waiting for.
class KVO_MEDIA_EXPORT VideoEncoderClientWrapperResource : public VideoEncoderClientWrapper {
public:
    /// Keeps `client` alive. Nothing is acquired yet.
    explicit VideoEncoderClientWrapperResource(std::shared_ptr<IVideoEncoderClient> client);

    /// Releases as release() does, also after release().
    ~VideoEncoderClientWrapperResource() override;

    /// Acquires a core that fits `config`, unless one is held, and configures the client with a
    /// copy of `config` that says whether the core is of type 802. Returns the client's status, -1
    /// when no core is granted or its id cannot be read, the next attempt then going on with the
    /// core if its type is known; or -19, with everything acquired still held, after a reclaim.
    /// Where the resource manager cannot be reached, the client is configured without a core.
    Return<void> configure(Configuration const& config) override;

    /// Releases the client, then gives everything back; returns the client's status. After a
    /// completed reclaim, which has released the client, does nothing and returns 0: what is still
    /// held goes at destruction.
    Return<void> release() override;

    // Forwarded to the client, unless refused.
    Return<void> writeColorAspect(ColorAspect const& aspect) override;
    Return<void> writeInputFrame(unsigned long long timestampUs, unsigned char const* data,
                                 unsigned int length) override;
    Return<void> writeInputImage(unsigned long long timestampUs, Image const& image) override;
    Return<int> readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                unsigned int* length, PicType* type) override;

    // Forwarded; status 0 when refused.
    Return<void> pause() override;
    Return<void> resume() override;
    Return<void> flush() override;

    // Forwarded to the client, unless refused.
    Return<void> setParameters(Configuration const& config) override;
    Return<void> getInputBufferStatus(unsigned int* freeBuffers, unsigned int* totalBuffers,
                                      int* width, int* height, int* stride) override;
    Return<Configuration> getConfiguration() override;

private:
    class Impl;

    KVO_MEDIA_HIDDEN Return<void> releaseInternal();

    /// Shared with a reclaim in progress, which may outlive this object.
    std::shared_ptr<Impl> mImpl;
};

}  // namespace kvo::media::hardware

/// As initializeResource(), for encoders.
KVO_MEDIA_EXPORT std::shared_ptr<ResourceClient> initializeResourceClient(
    std::shared_ptr<ResourceClient::Reclaimable> const& owner);
