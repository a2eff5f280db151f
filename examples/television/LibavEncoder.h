#pragma once

#include <deque>
#include <mutex>

#include "CodecStatus.h"
#include "Libav.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::demo {

/// An encoder over libavcodec, for AVC and VP8, in the place of the codec hardware. Like that it
/// keeps no picture back: each gives one coded picture at once. What it does without is refused by
/// its base, which has no client.
///
/// Every operation may be called from any thread at any time, as with LibavDecoder. A picture lies
/// in memory as planarLayout() says. A coded AVC stream carries its parameter sets itself.
class LibavEncoder final : public media::hardware::VideoEncoderClientWrapper {
public:
    LibavEncoder() : VideoEncoderClientWrapper(nullptr) {}

    media::hardware::Return<void> configure(media::hardware::Configuration const& config) override;
    media::hardware::Return<void> release() override;
    media::hardware::Return<void> flush() override;

    /// Comes before the first picture, if at all.
    media::hardware::Return<void> writeColorAspect(
        media::hardware::ColorAspect const& aspect) override;
    media::hardware::Return<void> writeInputFrame(unsigned long long timestampUs,
                                                  unsigned char const* data,
                                                  unsigned int length) override;
    /// The type is I for a picture from which decoding can start, else P.
    media::hardware::Return<int> readOutputFrame(unsigned long long* timestampUs,
                                                 unsigned char* data, unsigned int* length,
                                                 media::hardware::PicType* type) override;

    media::hardware::Return<media::hardware::Configuration> getConfiguration() override;

private:
    // mMutex is held in these.
    media::hardware::Status open();
    media::hardware::Status encode(AVFrame const& frame);

    std::mutex mMutex;       ///< Guards all that follows.
    CodecContextPtr mCodec;  ///< Null unless running.
    media::hardware::Configuration mConfiguration;
    media::hardware::ColorAspect mColors;
    bool mHasInput = false;        ///< A picture came since the configuration.
    std::deque<PacketPtr> mCoded;  ///< Pictures that the caller has not read.
};

}  // namespace kvo::demo
