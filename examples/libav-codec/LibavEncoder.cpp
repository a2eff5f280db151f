#include "LibavEncoder.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "kvo/media/hardware/CodecType.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace kvo::media::hardware::example {

using namespace codec_status;

namespace {

constexpr std::size_t kMaxCoded = 8;

constexpr int kUsualFrameRate = 25;
constexpr double kBitsPerPixel = 0.15;
constexpr std::int64_t kMinBitRate = 100'000;
constexpr std::int64_t kMaxBitRate = 50'000'000;
constexpr int kSecondsPerKeyFrame = 2;

/// The options that make libavcodec's encoders keep no picture back.
constexpr char kAvcOptions[] = "preset=veryfast:tune=zerolatency";
constexpr char kVp8Options[] = "deadline=realtime:cpu-used=4:lag-in-frames=0";

}  // namespace

/// Makes a call with mMutex held, or fails for it before a configuration and after a release.
template <typename Call>
auto LibavEncoder::whenConfigured(Call call) -> decltype(call()) {
    std::lock_guard<std::mutex> const lock(mMutex);
    return mConfigured ? call() : decltype(call())(kNotRunning);
}

Return<void> LibavEncoder::configure(Configuration const& config) {
    std::lock_guard<std::mutex> const lock(mMutex);
    mConfiguration = config;
    mColors = {};
    mCoded.clear();
    Status const opened = open();  // Only to see whether the configuration will do.
    mCodec.reset();
    mConfigured = !opened.isError();
    return opened;
}

Status LibavEncoder::open() {
    auto const format = static_cast<CodecType>(mConfiguration.getInt32(key::kOutFormat, 0));
    bool const isAvc = format == CodecType::AVC;
    AVCodec const* const codec = avcodec_find_encoder_by_name(isAvc ? "libx264" : "libvpx");
    if (codec == nullptr || (!isAvc && format != CodecType::VP8)) {
        return kInvalid;
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
    setColors(*context, mColors);
    if (av_set_options_string(context->priv_data, isAvc ? kAvcOptions : kVp8Options, "=", ":") <
            0 ||
        avcodec_open2(context.get(), codec, nullptr) < 0) {
        return kInvalid;
    }
    mCodec = std::move(context);
    return status::kSuccess;
}

Return<void> LibavEncoder::release() {
    std::lock_guard<std::mutex> const lock(mMutex);
    mConfigured = false;
    mCodec.reset();
    mCoded.clear();
    return status::kSuccess;
}

Return<void> LibavEncoder::writeColorAspect(ColorAspect const& aspect) {
    return whenConfigured([&]() -> Return<void> {
        if (mCodec != nullptr) {
            return kInvalid;
        }
        mColors = aspect;
        return status::kSuccess;
    });
}

Return<void> LibavEncoder::writeInputFrame(unsigned long long timestampUs,
                                           unsigned char const* data, unsigned int length) {
    return whenConfigured([&]() -> Return<void> {
        if (mCodec == nullptr && open().isError()) {
            return kInvalid;
        }
        Size const size{mCodec->width, mCodec->height};
        if (length != planarLayout(size).length) {
            return kInvalid;
        }
        if (mCoded.size() >= kMaxCoded) {
            return kTryAgain;
        }
        FramePtr const frame(av_frame_alloc());
        // libavcodec copies what it keeps of a frame that does not own its bytes.
        showPlanes(*frame, data, size);
        setColors(*frame, mColors);
        frame->pts = static_cast<std::int64_t>(timestampUs);
        return encode(*frame);
    });
}

Status LibavEncoder::encode(AVFrame const& frame) {
    if (avcodec_send_frame(mCodec.get(), &frame) < 0) {
        return kInvalid;
    }
    for (;;) {
        PacketPtr packet(av_packet_alloc());
        int const result = avcodec_receive_packet(mCodec.get(), packet.get());
        if (result < 0) {
            return result == AVERROR(EAGAIN) ? status::kSuccess : kInvalid;
        }
        mCoded.push_back(std::move(packet));
    }
}

Return<int> LibavEncoder::readOutputFrame(unsigned long long* timestampUs, unsigned char* data,
                                          unsigned int* length, PicType* type) {
    return whenConfigured([&]() -> Return<int> {
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
    });
}

Return<Configuration> LibavEncoder::getConfiguration() {
    return whenConfigured([&]() -> Return<Configuration> {
        return {status::kSuccess, mConfiguration};
    });
}

}  // namespace kvo::media::hardware::example
