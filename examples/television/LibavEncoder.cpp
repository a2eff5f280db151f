#include "LibavEncoder.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Picture.h"
#include "kvo/media/hardware/CodecType.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::demo {

using namespace media::hardware;
using namespace codec_status;

namespace {

constexpr std::size_t kMaxCoded = 8;

constexpr int kUsualFrameRate = 25;
constexpr double kBitsPerPixel = 0.15;
constexpr std::int64_t kMinBitRate = 100'000;
constexpr std::int64_t kMaxBitRate = 50'000'000;
constexpr int kSecondsPerKeyFrame = 2;

constexpr AVRational kMicroseconds{1, 1'000'000};

/// The options that make libavcodec's encoders keep no picture back.
void hurry(AVCodecContext& context, bool isAvc) {
    if (isAvc) {
        av_opt_set(context.priv_data, "preset", "veryfast", 0);
        av_opt_set(context.priv_data, "tune", "zerolatency", 0);
    } else {
        av_opt_set(context.priv_data, "deadline", "realtime", 0);
        av_opt_set(context.priv_data, "cpu-used", "4", 0);
        av_opt_set(context.priv_data, "lag-in-frames", "0", 0);
    }
}

}  // namespace

Return<void> LibavEncoder::configure(Configuration const& config) {
    std::lock_guard<std::mutex> const lock(mMutex);
    mConfiguration = config;
    mColors = {};
    return open();
}

Status LibavEncoder::open() {
    mCodec.reset();
    mCoded.clear();
    mHasInput = false;

    bool const isAvc =
        mConfiguration.getInt32(key::kOutFormat, 0) == static_cast<int>(CodecType::AVC);
    bool const isVp8 =
        mConfiguration.getInt32(key::kOutFormat, 0) == static_cast<int>(CodecType::VP8);
    if (!isAvc && !isVp8) {
        return kInvalid;
    }
    AVCodec const* const codec = avcodec_find_encoder_by_name(isAvc ? "libx264" : "libvpx");
    if (codec == nullptr) {
        return kNotSupported;
    }
    int const rate = mConfiguration.getInt32(key::kFrameRate, 0);
    int const frameRate = rate > 0 ? rate : kUsualFrameRate;
    CodecContextPtr context(avcodec_alloc_context3(codec));
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->width = mConfiguration.getInt32(key::kWidth, 0);
    context->height = mConfiguration.getInt32(key::kHeight, 0);
    context->time_base = kMicroseconds;
    context->framerate = {frameRate, 1};
    double const bitRate = kBitsPerPixel * context->width * context->height * frameRate;
    context->bit_rate = std::clamp(static_cast<std::int64_t>(bitRate), kMinBitRate, kMaxBitRate);
    context->gop_size = kSecondsPerKeyFrame * frameRate;
    context->max_b_frames = 0;
    context->color_primaries = static_cast<AVColorPrimaries>(mColors.primaries);
    context->color_trc = static_cast<AVColorTransferCharacteristic>(mColors.transfer);
    context->colorspace = static_cast<AVColorSpace>(mColors.matrix);
    context->color_range = mColors.fullRange != 0 ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    hurry(*context, isAvc);
    if (avcodec_open2(context.get(), codec, nullptr) < 0) {
        return kInvalid;
    }
    mCodec = std::move(context);
    return status::kSuccess;
}

Return<void> LibavEncoder::release() {
    std::lock_guard<std::mutex> const lock(mMutex);
    mCodec.reset();
    mCoded.clear();
    return status::kSuccess;
}

Return<void> LibavEncoder::writeColorAspect(ColorAspect const& aspect) {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mCodec == nullptr) {
        return kNotRunning;
    }
    if (mHasInput) {
        return kInvalid;
    }
    mColors = aspect;
    return open();
}

Return<void> LibavEncoder::writeInputFrame(unsigned long long timestampUs,
                                           unsigned char const* data, unsigned int length) {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mCodec == nullptr) {
        return kNotRunning;
    }
    PixelInfo const layout = planarLayout(mCodec->width, mCodec->height);
    if (length != layout.length) {
        return kInvalid;
    }
    if (mCoded.size() >= kMaxCoded) {
        return kTryAgain;
    }
    try {
        FramePtr const frame = toFrame(data, layout, mColors);
        frame->pts = static_cast<std::int64_t>(timestampUs);
        mHasInput = true;
        return encode(*frame);
    } catch (DemoFailure const&) {
        return kInvalid;  // No exception may pass through the library.
    }
}

Status LibavEncoder::encode(AVFrame const& frame) {
    if (avcodec_send_frame(mCodec.get(), &frame) < 0) {
        return kInvalid;
    }
    for (;;) {
        PacketPtr packet(av_packet_alloc());
        int const result = avcodec_receive_packet(mCodec.get(), packet.get());
        if (result == AVERROR(EAGAIN)) {
            return status::kSuccess;
        }
        if (result < 0) {
            return kInvalid;
        }
        mCoded.push_back(std::move(packet));
    }
}

Return<int> LibavEncoder::readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                          unsigned int* length, PicType* type) {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mCodec == nullptr) {
        return kNotRunning;
    }
    if (mCoded.empty()) {
        return kTryAgain;
    }
    AVPacket const& packet = *mCoded.front();
    if (static_cast<unsigned int>(packet.size) > *length) {
        return kInvalid;
    }
    *timestampUs = static_cast<unsigned long long>(packet.pts);
    *length = static_cast<unsigned int>(packet.size);
    *type = (packet.flags & AV_PKT_FLAG_KEY) != 0 ? PicType::I : PicType::P;
    std::memcpy(data, packet.data, *length);
    mCoded.pop_front();
    return status::kSuccess;
}

Return<void> LibavEncoder::flush() {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mCodec == nullptr) {
        return kNotRunning;
    }
    mCoded.clear();
    return status::kSuccess;
}

Return<void> LibavEncoder::getInputBufferStatus(unsigned int* freeBuffers,
                                                unsigned int* totalBuffers, int* width, int* height,
                                                int* stride) {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mCodec == nullptr) {
        return kNotRunning;
    }
    *freeBuffers = static_cast<unsigned int>(kMaxCoded - mCoded.size());
    *totalBuffers = static_cast<unsigned int>(kMaxCoded);
    *width = mCodec->width;
    *height = mCodec->height;
    *stride = static_cast<int>(planarLayout(mCodec->width, mCodec->height).planes[0].stride);
    return status::kSuccess;
}

Return<Configuration> LibavEncoder::getConfiguration() {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mCodec == nullptr) {
        return kNotRunning;
    }
    return {status::kSuccess, mConfiguration};
}

// --- What the demo does without.

Return<void> LibavEncoder::writeInputImage(unsigned long long, Image const&) {
    return kNotSupported;
}
Return<void> LibavEncoder::pause() { return kNotSupported; }
Return<void> LibavEncoder::resume() { return kNotSupported; }
Return<void> LibavEncoder::setParameters(Configuration const&) { return kNotSupported; }

}  // namespace kvo::demo
