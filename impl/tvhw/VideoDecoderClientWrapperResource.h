#pragma once

#include <memory>

#include "ResourceClient.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"

namespace kvo::media::hardware {

/// A decoder that takes a codec core, and for tunnel mode a display port, from the resource manager
/// before its client is configured, and gives it back on release.
///
/// When the resource manager reclaims the core, it waits at most 3 seconds for the calls in flight,
/// releases the client and refuses every later call: with status -19 (flush(): 0) and the default
/// value, and without touching out-parameters. The configure operations act before they are
/// refused, and release() answers 0 and gives nothing back: the owner destroys the wrapper.
/// pause(), resume(), step(), setTunnelPeek(), setSpeed(), getFrameInfo(), getColorAspect(),
/// getHdrInfo(), currentSTCTime() and the test operations are the base class's: forwarded to the
/// client whatever has happened.
///
/// Threads: the configure operations, reconfigureOutputBuffer(), release() and the destructor are
/// the owner's, one at a time. All others may be called from several threads at once, also while a
/// reclaim runs on the resource manager's thread, but not while the destructor runs: it comes after
/// the last call has returned, also one that a reclaim has given up waiting for.
class KVO_MEDIA_EXPORT VideoDecoderClientWrapperResource : public VideoDecoderClientWrapper {
public:
    /// Keeps `client` alive. Nothing is acquired yet.
    explicit VideoDecoderClientWrapperResource(std::shared_ptr<IVideoDecoderClient> client);

    /// Releases as release() does, also after release().
    ~VideoDecoderClientWrapperResource() override;

    /// Acquires a core that fits `type` and `config`, unless one is held, and a display port,
    /// unless one was granted or learned. The core is asked for by MIME type (porting.md has the
    /// list), and for no less than 1280x720, unless "color-format" is 5 to 12; an adaptive stream
    /// for its largest size, no less than 1920x1080. Where all cores are smaller, small clips are
    /// refused, too. Then configures the client with a copy of `config` in
    /// which the granted core, id, port and size limits are written. Returns
    /// - the client's status;
    /// - -1 when the resource manager grants no core, or no port: then the core is given back, too.
    ///   A port whose grant cannot be read counts as none (-1) and is no failure;
    /// - -1 when the core's id cannot be read. Call release() then: the next attempt would go on
    ///   with that core, if its type is known, with id -1 and the port as the manager numbers it;
    /// - -19 after a reclaim. The acquisition has run all the same (and may have failed with -1);
    ///   what it leaves held goes at destruction.
    Return<void> configureTunnelMode(CodecType type, Configuration const& config) override;
    /// As configureTunnelMode(), without asking for a display port.
    Return<void> configureReferenceMode(CodecType type, Configuration const& config) override;
    /// As configureReferenceMode(), after clearing both display ports; -1, with the core still
    /// held, when they cannot be cleared.
    Return<void> configurePixelMode(CodecType type, Configuration const& config) override;
    /// As configureReferenceMode().
    Return<void> configureNativeBufferMode(CodecType type, Configuration const& config) override;

    /// Releases the client, then gives everything back; returns the client's status. A port that
    /// was learned is cleared where the property "ro.vendor.kvo.omx.clear_display" is 1. After a
    /// completed reclaim, which has released the client, only tells the platform and returns 0:
    /// what is still held goes at destruction.
    Return<void> release() override;

    // Forwarded to the client, unless refused.
    Return<void> writeInputData(unsigned char const* data, unsigned int length,
                                unsigned int flags) override;
    Return<void> writeInputFrame(unsigned int flags, unsigned long long timestampUs,
                                 unsigned char const* data, unsigned int length) override;
    Return<void> writeInputEndOfStream() override;
    Return<void> writeHdrInfo(ColorAspect const& aspect, HdrInfo const& info) override;

    /// Returns the client's buffer with this decoder's port, resource id and calling process in it
    /// and status 0, or the client's error with a default buffer.
    Return<BufferInfo> dequeueOutputBuffer() override;
    /// Forwarded. A decoder that was granted no display port learns from `buffer` the port on which
    /// its pictures are shown: the caller has set `videoPort`, from 0, to it.
    Return<void> releaseOutputBuffer(BufferInfo const& buffer) override;

    // Forwarded to the client, unless refused.
    Return<PixelInfo> dequeuePixelBuffer() override;
    Return<void> copyFromPixelBuffer(unsigned char* destination, unsigned int length,
                                     PixelInfo& pixel) override;
    Return<void> releasePixelBuffer(PixelInfo const& pixel) override;
    Return<void> queueNativeBuffer(std::shared_ptr<NativeBuffer> buffer) override;
    Return<std::shared_ptr<NativeBuffer>> dequeueNativeBuffer() override;
    Return<RenderEvent> dequeueRenderEvent() override;

    /// Gives the core and the display port back, acquires a core for `type` and `config`, without
    /// asking for a port, and hands it on to the client, as configureReferenceMode() does, but for
    /// the resource id. Returns the client's status; -1 when no core is granted, the old one being
    /// gone; or -19, having done nothing, after a reclaim.
    Return<void> reconfigureOutputBuffer(CodecType type, Configuration const& config) override;

    /// Forwarded; status 0 when refused.
    Return<void> flush() override;

    // Forwarded to the client, unless refused.
    Return<void> getInputBufferStatus(unsigned int* freeBytes, unsigned int* totalBytes,
                                      bool* ready) override;
    Return<Configuration> getConfiguration() override;

private:
    class Impl;

    KVO_MEDIA_HIDDEN Return<void> releaseInternal();

    /// Shared with a reclaim in progress, which may outlive this object.
    std::shared_ptr<Impl> mImpl;
};

}  // namespace kvo::media::hardware

/// Returns a connected resource client whose reclaims reach `owner`, which it does not keep alive,
/// or null when the resource manager cannot be reached.
KVO_MEDIA_EXPORT std::shared_ptr<ResourceClient> initializeResource(
    std::shared_ptr<ResourceClient::Reclaimable> const& owner);
