#pragma once

#include <deque>
#include <mutex>

#include "CodecStatus.h"
#include "Libav.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::media::hardware::example {

/// An encoder over libavcodec, for AVC and VP8, in the place of the codec hardware. Like that it
/// keeps no picture back: each gives one coded picture at once. What it does without is refused by
/// its base, which has no client.
///
/// Every operation may be called from any thread at any time, as with LibavDecoder. A picture lies
/// in memory as planarLayout() says. A coded AVC stream carries its parameter sets itself.
class LibavEncoder final : public VideoEncoderClientWrapper {
public:
    LibavEncoder() : VideoEncoderClientWrapper(nullptr) {}

    Return<void> configure(Configuration const& config) override;
    Return<void> release() override;

    /// Comes before the first picture, if at all.
    Return<void> writeColorAspect(ColorAspect const& aspect) override;
    Return<void> writeInputFrame(unsigned long long timestampUs, unsigned char const* data,
                                 unsigned int length) override;
    /// The type is I for a picture from which decoding can start, else P.
    Return<int> readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                unsigned int* length, PicType* type) override;

    Return<Configuration> getConfiguration() override;

private:
    template <typename Call>
    auto whenConfigured(Call call) -> decltype(call());

    // mMutex is held in these.
    Status open();
    Status encode(AVFrame const& frame);

    std::mutex mMutex;  ///< Guards all that follows.
    bool mConfigured = false;
    CodecContextPtr mCodec;  ///< Null before the first picture.
    Configuration mConfiguration;
    ColorAspect mColors;
    std::deque<PacketPtr> mCoded;  ///< Pictures that the caller has not read.
};

}  // namespace kvo::media::hardware::example
