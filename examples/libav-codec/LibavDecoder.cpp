#include "LibavDecoder.h"

#include <chrono>
#include <cstring>
#include <utility>

#include "Clip.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::example {

using namespace codec_status;

namespace {

/// Pictures that the caller may hold at once, as many as a small output queue has.
constexpr std::size_t kMaxLent = 4;

std::uint64_t nowNs() {
    auto const now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

std::uint64_t timeOf(AVFrame const& frame) {
    std::int64_t const time = frame.best_effort_timestamp;
    return time == AV_NOPTS_VALUE ? 0 : static_cast<std::uint64_t>(time);
}

}  // namespace

LibavDecoder::LibavDecoder(AVCodecParameters const& parameters, std::string presentation,
                           std::shared_ptr<DisplayPorts> ports)
    : VideoDecoderClientWrapper(nullptr),
      mParameters(avcodec_parameters_alloc()),
      mPresentation(std::move(presentation)),
      mPorts(std::move(ports)) {
    requireLibav(avcodec_parameters_copy(mParameters.get(), &parameters),
                 "cannot copy codec parameters");
}

// --- Life.

Return<void> LibavDecoder::configure(Mode mode, CodecType type, Configuration const& config) {
    std::lock_guard<std::mutex> const lock(mMutex);
    forgetAll();
    AVCodec const* const codec = avcodec_find_decoder(mParameters->codec_id);
    if (codec == nullptr || codecTypeOf(mParameters->codec_id) != type) {
        return kInvalid;
    }
    CodecContextPtr context(avcodec_alloc_context3(codec));
    context->thread_count = 0;
    context->pkt_timebase = kMicroseconds;
    if (avcodec_parameters_to_context(context.get(), mParameters.get()) < 0 ||
        avcodec_open2(context.get(), codec, nullptr) < 0) {
        return kInvalid;
    }
    mCodec = std::move(context);
    mInputEnded = false;
    mMode = mode;
    mConfiguration = config;
    mFrameInfo = {};
    mColors = {};
    return status::kSuccess;
}

Return<void> LibavDecoder::configureTunnelMode(CodecType type, Configuration const& config) {
    return configure(Mode::kTunnel, type, config);
}

Return<void> LibavDecoder::configurePixelMode(CodecType type, Configuration const& config) {
    return configure(Mode::kPixel, type, config);
}

Return<void> LibavDecoder::release() {
    std::lock_guard<std::mutex> const lock(mMutex);
    forgetAll();
    return status::kSuccess;
}

void LibavDecoder::forgetAll() {
    if (mMode == Mode::kTunnel && mPorts != nullptr) {
        mPorts->show(displayPort(), nullptr);
    }
    mMode = Mode::kNone;
    mCodec.reset();
    mLent.clear();
    mRenderEvents.clear();
}

int LibavDecoder::displayPort() const { return mConfiguration.getInt32(key::kVideoPort, -1); }

/// Makes a call with mMutex held, or fails for it when the decoder does not run.
template <typename Call>
auto LibavDecoder::whenRunning(Call call) -> decltype(call()) {
    std::lock_guard<std::mutex> const lock(mMutex);
    return mCodec == nullptr ? decltype(call())(kNotRunning) : call();
}

// --- Input.

Return<void> LibavDecoder::writeInputFrame(unsigned int flags, unsigned long long timestampUs,
                                           unsigned char const* data, unsigned int length) {
    PacketPtr const packet(av_packet_alloc());
    if (packet == nullptr || av_new_packet(packet.get(), static_cast<int>(length)) < 0) {
        return kInvalid;
    }
    if (length > 0) {
        std::memcpy(packet->data, data, length);
    }
    packet->flags = static_cast<int>(flags);
    packet->pts = static_cast<std::int64_t>(timestampUs);

    return whenRunning([&]() -> Return<void> {
        if (mInputEnded) {
            return kInvalid;
        }
        int const result = avcodec_send_packet(mCodec.get(), packet.get());
        if (result == AVERROR(EAGAIN)) {
            return kTryAgain;
        }
        mFrameInfo.droppedFrames += result < 0 ? 1U : 0U;
        return status::kSuccess;
    });
}

Return<void> LibavDecoder::writeInputEndOfStream() {
    return whenRunning([&]() -> Return<void> {
        mInputEnded = true;
        return status::kSuccess;
    });
}

// --- Output.

/// Takes the next picture from libavcodec, in the decoder's own format. Returns libavcodec's
/// result.
int LibavDecoder::receive(AVFrame& picture) {
    int result = avcodec_receive_frame(mCodec.get(), &picture);
    if (result == AVERROR(EAGAIN) && mInputEnded) {
        // Not before: libavcodec forgets a coded frame that still waits when the end is told.
        int const told = avcodec_send_packet(mCodec.get(), nullptr);
        mFrameInfo.droppedFrames += told < 0 && told != AVERROR_EOF ? 1U : 0U;
        result = avcodec_receive_frame(mCodec.get(), &picture);
    }
    if (result >= 0 && picture.format == AV_PIX_FMT_YUVJ420P) {
        picture.format = AV_PIX_FMT_YUV420P;
        picture.color_range = AVCOL_RANGE_JPEG;
    }
    return result;
}

/// Lends the caller the next picture; the value is its buffer id, -1 at the end of the stream.
Return<int> LibavDecoder::lendNext(Mode mode) {
    if (mMode != mode) {
        return kInvalid;
    }
    if (mLent.size() >= kMaxLent) {
        return kTryAgain;
    }
    FramePtr picture(av_frame_alloc());
    int const result = receive(*picture);
    if (result == AVERROR_EOF) {
        return {status::kSuccess, -1};
    }
    if (result < 0) {
        mFrameInfo.droppedFrames += result == AVERROR(EAGAIN) ? 0U : 1U;
        return kTryAgain;
    }
    mColors = colorsOf(*picture);
    if (!mPresentation.empty() || picture->format != AV_PIX_FMT_YUV420P) {
        try {
            std::int64_t const time = picture->best_effort_timestamp;
            picture = filtered({picture.get()}, "[in0]" + mPresentation + "format=yuv420p");
            picture->best_effort_timestamp = time;
        } catch (Failure const&) {
            return kInvalid;  // No exception may pass through the library.
        }
        mColors.fullRange = colorsOf(*picture).fullRange;
    }
    ++mFrameInfo.decodedFrames;
    mFrameInfo.width = picture->width;
    mFrameInfo.height = picture->height;
    mLent[mNextBufferId] = std::move(picture);
    return {status::kSuccess, mNextBufferId++};
}

Return<PixelInfo> LibavDecoder::dequeuePixelBuffer() {
    return whenRunning([&]() -> Return<PixelInfo> {
        Return<int> const lent = lendNext(Mode::kPixel);
        PixelInfo pixel;
        if (lent.status().isError() || lent.value() < 0) {
            pixel.endOfStream = 1;
            return {lent.status(), pixel};
        }
        AVFrame const& picture = *mLent[lent.value()];
        pixel = planarLayout({picture.width, picture.height});
        pixel.bufferId = lent.value();
        pixel.timestampUs = timeOf(picture);
        return {status::kSuccess, pixel};
    });
}

Return<void> LibavDecoder::copyFromPixelBuffer(unsigned char* destination, unsigned int length,
                                               PixelInfo& pixel) {
    return whenRunning([&]() -> Return<void> {
        auto const lent = mLent.find(pixel.bufferId);
        if (mMode != Mode::kPixel || lent == mLent.end()) {
            return kInvalid;
        }
        AVFrame const& picture = *lent->second;
        if (length < planarLayout({picture.width, picture.height}).length) {
            return kInvalid;
        }
        copyPlanes(picture, destination);
        return status::kSuccess;
    });
}

Return<void> LibavDecoder::releasePixelBuffer(PixelInfo const& pixel) {
    return whenRunning([&]() -> Return<void> {
        return mLent.erase(pixel.bufferId) == 1 ? status::kSuccess : kInvalid;
    });
}

Return<BufferInfo> LibavDecoder::dequeueOutputBuffer() {
    return whenRunning([&]() -> Return<BufferInfo> {
        Return<int> const lent = lendNext(Mode::kTunnel);
        BufferInfo buffer;
        if (lent.status().isError() || lent.value() < 0) {
            buffer.endOfStream = 1;
            return {lent.status(), buffer};
        }
        AVFrame const& picture = *mLent[lent.value()];
        buffer.bufferId = lent.value();
        buffer.width = picture.width;
        buffer.height = picture.height;
        buffer.timestampUs = timeOf(picture);
        return {status::kSuccess, buffer};
    });
}

Return<void> LibavDecoder::releaseOutputBuffer(BufferInfo const& buffer) {
    return whenRunning([&]() -> Return<void> {
        auto const lent = mLent.find(buffer.bufferId);
        if (mMode != Mode::kTunnel || lent == mLent.end()) {
            return kInvalid;
        }
        if (mPorts != nullptr) {
            mPorts->show(displayPort(), std::move(lent->second));
        }
        mLent.erase(lent);
        mRenderEvents.push_back({buffer.timestampUs, nowNs()});
        return status::kSuccess;
    });
}

Return<RenderEvent> LibavDecoder::dequeueRenderEvent() {
    return whenRunning([&]() -> Return<RenderEvent> {
        if (mRenderEvents.empty()) {
            return kTryAgain;
        }
        RenderEvent const event = mRenderEvents.front();
        mRenderEvents.pop_front();
        return {status::kSuccess, event};
    });
}

// --- State.

Return<FrameInfo> LibavDecoder::getFrameInfo() {
    std::lock_guard<std::mutex> const lock(mMutex);
    return {status::kSuccess, mFrameInfo};
}

Return<ColorAspect> LibavDecoder::getColorAspect() {
    return whenRunning([&]() -> Return<ColorAspect> { return {status::kSuccess, mColors}; });
}

Return<Configuration> LibavDecoder::getConfiguration() {
    return whenRunning([&]() -> Return<Configuration> {
        return {status::kSuccess, mConfiguration};
    });
}

}  // namespace kvo::media::hardware::example
