#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>

#include "CodecStatus.h"
#include "DisplayPorts.h"
#include "Libav.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"

namespace kvo::media::hardware::example {

/// A decoder over libavcodec, for pixel mode and tunnel mode, in the place of the codec hardware.
/// What it does without is refused by its base, which has no client.
///
/// Every operation may be called from any thread at any time: one mutex admits one call after the
/// other, and none waits for another call to come. One that has to wait for room or for a picture
/// returns codec_status::kTryAgain instead; before a configuration and after release() all but the
/// configurations, release() and getFrameInfo() return kNotRunning.
///
/// The flags of a coded frame are those of its AVPacket. A picture is planar YUV 4:2:0 with 8 bits
/// a sample, whatever the stream's own format. A frame that cannot be decoded is dropped.
class LibavDecoder final : public VideoDecoderClientWrapper {
public:
    /// `parameters` describe the stream, with what its container keeps apart from the frames;
    /// `presentation` holds filters, each with a comma behind it, through which its pictures go.
    /// Those of tunnel mode go to `ports`, unless it is null.
    LibavDecoder(AVCodecParameters const& parameters, std::string presentation,
                 std::shared_ptr<DisplayPorts> ports);

    Return<void> configureTunnelMode(CodecType type, Configuration const& config) override;
    Return<void> configurePixelMode(CodecType type, Configuration const& config) override;
    Return<void> release() override;

    Return<void> writeInputFrame(unsigned int flags, unsigned long long timestampUs,
                                 unsigned char const* data, unsigned int length) override;
    Return<void> writeInputEndOfStream() override;

    Return<PixelInfo> dequeuePixelBuffer() override;
    Return<void> copyFromPixelBuffer(unsigned char* destination, unsigned int length,
                                     PixelInfo& pixel) override;
    Return<void> releasePixelBuffer(PixelInfo const& pixel) override;

    Return<BufferInfo> dequeueOutputBuffer() override;
    Return<void> releaseOutputBuffer(BufferInfo const& buffer) override;
    /// Tells of the pictures whose output buffers were released in tunnel mode.
    Return<RenderEvent> dequeueRenderEvent() override;

    Return<FrameInfo> getFrameInfo() override;
    Return<ColorAspect> getColorAspect() override;
    Return<Configuration> getConfiguration() override;

private:
    enum class Mode { kNone, kPixel, kTunnel };

    Return<void> configure(Mode mode, CodecType type, Configuration const& config);

    template <typename Call>
    auto whenRunning(Call call) -> decltype(call());

    // mMutex is held in these.
    void forgetAll();
    [[nodiscard]] int displayPort() const;
    int receive(AVFrame& picture);
    Return<int> lendNext(Mode mode);

    CodecParametersPtr const mParameters;
    std::string const mPresentation;
    std::shared_ptr<DisplayPorts> const mPorts;

    std::mutex mMutex;  ///< Guards all that follows.
    Mode mMode = Mode::kNone;
    CodecContextPtr mCodec;  ///< Null unless running.
    bool mInputEnded = false;
    Configuration mConfiguration;
    FrameInfo mFrameInfo;
    ColorAspect mColors;            ///< Of the last picture.
    std::map<int, FramePtr> mLent;  ///< Pictures with the caller, by buffer id.
    int mNextBufferId = 0;
    std::deque<RenderEvent> mRenderEvents;
};

}  // namespace kvo::media::hardware::example
