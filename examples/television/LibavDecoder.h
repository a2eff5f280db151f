#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>

#include "CodecStatus.h"
#include "DisplayPorts.h"
#include "Libav.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"

namespace kvo::demo {

/// A decoder over libavcodec, for pixel mode and tunnel mode, in the place of the codec hardware.
/// What it does without is refused by its base, which has no client.
///
/// Every operation may be called from any thread at any time: one mutex admits one call after the
/// other, and none waits for another call to come. One that has to wait for room or for a picture
/// returns codec_status::kTryAgain instead; before a configuration and after release() all return
/// kNotRunning.
///
/// The flags of a coded frame are those of its AVPacket. A picture is planar YUV 4:2:0 with 8 bits
/// a sample, whatever the stream's own format. A frame that cannot be decoded is dropped.
class LibavDecoder final : public media::hardware::VideoDecoderClientWrapper {
public:
    /// `parameters` describe the stream, with what its container keeps apart from the frames;
    /// `turn` holds the filters, each with a comma behind it, that turn its pictures upright. The
    /// pictures of tunnel mode go to `ports`, unless it is null.
    LibavDecoder(AVCodecParameters const& parameters, std::string turn,
                 std::shared_ptr<DisplayPorts> ports);

    media::hardware::Return<void> configureTunnelMode(
        media::hardware::CodecType type, media::hardware::Configuration const& config) override;
    media::hardware::Return<void> configurePixelMode(
        media::hardware::CodecType type, media::hardware::Configuration const& config) override;
    media::hardware::Return<void> release() override;
    media::hardware::Return<void> flush() override;

    media::hardware::Return<void> writeInputFrame(unsigned int flags,
                                                  unsigned long long timestampUs,
                                                  unsigned char const* data,
                                                  unsigned int length) override;
    media::hardware::Return<void> writeInputEndOfStream() override;

    media::hardware::Return<media::hardware::PixelInfo> dequeuePixelBuffer() override;
    media::hardware::Return<void> copyFromPixelBuffer(unsigned char* destination,
                                                      unsigned int length,
                                                      media::hardware::PixelInfo& pixel) override;
    media::hardware::Return<void> releasePixelBuffer(
        media::hardware::PixelInfo const& pixel) override;

    media::hardware::Return<media::hardware::BufferInfo> dequeueOutputBuffer() override;
    media::hardware::Return<void> releaseOutputBuffer(
        media::hardware::BufferInfo const& buffer) override;
    /// Tells of the pictures whose output buffers were released in tunnel mode.
    media::hardware::Return<media::hardware::RenderEvent> dequeueRenderEvent() override;

    media::hardware::Return<media::hardware::FrameInfo> getFrameInfo() override;
    media::hardware::Return<media::hardware::ColorAspect> getColorAspect() override;
    media::hardware::Return<media::hardware::Configuration> getConfiguration() override;

private:
    enum class Mode { kNone, kPixel, kTunnel };

    media::hardware::Return<void> configure(Mode mode, media::hardware::CodecType type,
                                            media::hardware::Configuration const& config);

    // mMutex is held in these.
    void forgetAll();
    [[nodiscard]] int displayPort() const;
    int receive(AVFrame& picture);
    media::hardware::Return<int> lendNext(Mode mode);

    CodecParametersPtr const mParameters;
    std::string const mTurn;
    std::shared_ptr<DisplayPorts> const mPorts;

    std::mutex mMutex;  ///< Guards all that follows.
    Mode mMode = Mode::kNone;
    CodecContextPtr mCodec;  ///< Null unless running.
    bool mInputEnded = false;
    media::hardware::Configuration mConfiguration;
    media::hardware::FrameInfo mFrameInfo;
    media::hardware::ColorAspect mColors;  ///< Of the last picture.
    std::map<int, FramePtr> mLent;         ///< Pictures with the caller, by buffer id.
    int mNextBufferId = 0;
    std::deque<media::hardware::RenderEvent> mRenderEvents;
};

}  // namespace kvo::demo
