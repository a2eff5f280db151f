#pragma once

#include "kvo/media/hardware/ColorAspect.h"
#include "kvo/media/hardware/Configuration.h"
#include "kvo/media/hardware/Image.h"
#include "kvo/media/hardware/PicType.h"
#include "kvo/media/hardware/Return.h"

namespace kvo::media::hardware {

/// A video encoder. The order of the operations is the order of the virtual table, which other
/// binaries rely on.
///
/// What IVideoDecoderClient says of overlapping operations, release() and exceptions holds here
/// too.
class IVideoEncoderClient {
public:
    IVideoEncoderClient() = default;
    IVideoEncoderClient(IVideoEncoderClient const&) = delete;
    IVideoEncoderClient& operator=(IVideoEncoderClient const&) = delete;
    virtual ~IVideoEncoderClient() = default;

    /// Prepares the encoder; "outFormat" names the codec.
    virtual Return<void> configure(Configuration const& config) = 0;

    /// Stops the encoder and gives up everything it holds.
    virtual Return<void> release() = 0;

    /// Hands over the colour description of the pictures to come.
    virtual Return<void> writeColorAspect(ColorAspect const& aspect) = 0;
    /// Feeds one raw picture of `length` bytes with its time in microseconds.
    virtual Return<void> writeInputFrame(unsigned long long timestampUs, unsigned char const* data,
                                         unsigned int length) = 0;
    /// Feeds one picture that lies in a buffer of the platform.
    virtual Return<void> writeInputImage(unsigned long long timestampUs, Image const& image) = 0;
    /// Takes the next coded picture: copies it to `data`, which holds `*length` bytes, and writes
    /// its time in microseconds, its length in bytes and its type.
    virtual Return<int> readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                        unsigned int* length, PicType* type) = 0;

    /// Stops encoding, the encoder's state kept.
    virtual Return<void> pause() = 0;
    /// Goes on after pause().
    virtual Return<void> resume() = 0;
    /// Drops everything queued, input and output.
    virtual Return<void> flush() = 0;
    /// Changes settings, such as the bit rate, while encoding.
    virtual Return<void> setParameters(Configuration const& config) = 0;

    /// Writes the number of free and of all input buffers, and the width, height and stride that a
    /// picture must have.
    virtual Return<void> getInputBufferStatus(unsigned int* freeBuffers, unsigned int* totalBuffers,
                                              int* width, int* height, int* stride) = 0;
    /// Returns the settings in force.
    virtual Return<Configuration> getConfiguration() = 0;
};

}  // namespace kvo::media::hardware
