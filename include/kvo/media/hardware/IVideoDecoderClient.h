#pragma once

#include <cstdint>
#include <memory>

#include "kvo/media/hardware/BufferInfo.h"
#include "kvo/media/hardware/CodecType.h"
#include "kvo/media/hardware/ColorAspect.h"
#include "kvo/media/hardware/Configuration.h"
#include "kvo/media/hardware/FrameInfo.h"
#include "kvo/media/hardware/HdrInfo.h"
#include "kvo/media/hardware/NativeBuffer.h"
#include "kvo/media/hardware/PixelInfo.h"
#include "kvo/media/hardware/RenderEvent.h"
#include "kvo/media/hardware/Return.h"

namespace kvo::media::hardware {

/// A video decoder. The order of the operations is the order of the virtual table, which other
/// binaries rely on.
///
/// Which operations may overlap is up to the implementation; one that is handed to a resource
/// wrapper must bear release() on another thread while any operation runs, release() included,
/// because a codec that does not return within 3 seconds is released under its caller, and its
/// owner, or another reclaim, may release it at the same moment. It must bear release() any number
/// of times, and after its wrapper is gone: a reclaim holds it until it has released it. Its
/// destructor may run on the resource manager's thread. No operation may throw.
class IVideoDecoderClient {
public:
    IVideoDecoderClient() = default;
    IVideoDecoderClient(IVideoDecoderClient const&) = delete;
    IVideoDecoderClient& operator=(IVideoDecoderClient const&) = delete;
    virtual ~IVideoDecoderClient() = default;

    /// The four ways to prepare the decoder for a stream: pictures go straight to a display port;
    /// into output buffers by reference; into pixel buffers that the caller copies from; or into
    /// native buffers that the caller queues.
    virtual Return<void> configureTunnelMode(CodecType type, Configuration const& config) = 0;
    virtual Return<void> configureReferenceMode(CodecType type, Configuration const& config) = 0;
    virtual Return<void> configurePixelMode(CodecType type, Configuration const& config) = 0;
    virtual Return<void> configureNativeBufferMode(CodecType type, Configuration const& config) = 0;

    /// Stops the decoder and gives up everything it holds.
    virtual Return<void> release() = 0;

    /// Feeds `length` bytes of stream; `flags` belongs to the codec contract.
    virtual Return<void> writeInputData(unsigned char const* data, unsigned int length,
                                        unsigned int flags) = 0;
    /// Feeds one coded frame of `length` bytes with its time in microseconds; `flags` belongs to
    /// the codec contract.
    virtual Return<void> writeInputFrame(unsigned int flags, unsigned long long timestampUs,
                                         unsigned char const* data, unsigned int length) = 0;
    /// Says that no input follows.
    virtual Return<void> writeInputEndOfStream() = 0;
    /// Hands over the stream's colour description and HDR metadata.
    virtual Return<void> writeHdrInfo(ColorAspect const& aspect, HdrInfo const& info) = 0;

    /// Stops showing pictures, the decoder's state kept.
    virtual Return<void> pause() = 0;
    /// Goes on after pause().
    virtual Return<void> resume() = 0;
    /// Shows the next picture of a paused decoder.
    virtual Return<void> step() = 0;
    /// Shows the first picture of a tunnelled stream before playback starts, or not.
    virtual Return<void> setTunnelPeek(bool enable) = 0;
    /// Sets the playback speed, 1.0 being the stream's own.
    virtual Return<void> setSpeed(double speed) = 0;
    /// Returns what the decoder knows of the stream's pictures.
    virtual Return<FrameInfo> getFrameInfo() = 0;
    /// Returns the stream's colour description.
    virtual Return<ColorAspect> getColorAspect() = 0;
    /// Returns the stream's HDR metadata.
    virtual Return<HdrInfo> getHdrInfo() = 0;

    /// Takes the next decoded output buffer; releaseOutputBuffer gives it back.
    virtual Return<BufferInfo> dequeueOutputBuffer() = 0;
    /// Gives an output buffer back, shown or to be shown.
    virtual Return<void> releaseOutputBuffer(BufferInfo const& buffer) = 0;

    /// Takes the next decoded pixel buffer; releasePixelBuffer gives it back.
    virtual Return<PixelInfo> dequeuePixelBuffer() = 0;
    /// Copies the picture of `pixel` to `destination`, which holds `length` bytes.
    virtual Return<void> copyFromPixelBuffer(unsigned char* destination, unsigned int length,
                                             PixelInfo& pixel) = 0;
    /// Gives a pixel buffer back.
    virtual Return<void> releasePixelBuffer(PixelInfo const& pixel) = 0;

    /// Lends a buffer to the decoder to draw into.
    virtual Return<void> queueNativeBuffer(std::shared_ptr<NativeBuffer> buffer) = 0;
    /// Takes back the next buffer with a picture in it.
    virtual Return<std::shared_ptr<NativeBuffer>> dequeueNativeBuffer() = 0;

    /// Takes the next report of a picture that was shown.
    virtual Return<RenderEvent> dequeueRenderEvent() = 0;

    /// Prepares the output for a stream of another size, without a new decoder.
    virtual Return<void> reconfigureOutputBuffer(CodecType type, Configuration const& config) = 0;

    /// Drops everything queued, input and output.
    virtual Return<void> flush() = 0;

    /// Writes the number of free and of all input bytes, and whether input can be taken now.
    virtual Return<void> getInputBufferStatus(unsigned int* freeBytes, unsigned int* totalBytes,
                                              bool* ready) = 0;
    /// Returns the settings in force.
    virtual Return<Configuration> getConfiguration() = 0;

    /// Returns the decoder's system time clock, in ticks of 90 kHz.
    virtual Return<std::int64_t> currentSTCTime() = 0;

    /// Checks of the connection between a client and a codec in another process.
    virtual Return<void> testConnection() = 0;
    virtual Return<void> testInvalidConnection() = 0;
    virtual Return<void> testWriteInputData(unsigned char const* data, unsigned int length,
                                            unsigned int flags) = 0;
};

}  // namespace kvo::media::hardware
