#include "ClipReader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace kvo::demo {

namespace {

using media::hardware::CodecType;

constexpr std::array<std::pair<AVCodecID, CodecType>, 10> kCodecs{{
    {AV_CODEC_ID_H264, CodecType::AVC},
    {AV_CODEC_ID_HEVC, CodecType::HEVC},
    {AV_CODEC_ID_VP9, CodecType::VP9},
    {AV_CODEC_ID_AV1, CodecType::AV1},
    {AV_CODEC_ID_MPEG4, CodecType::MPEG4},
    {AV_CODEC_ID_MPEG2VIDEO, CodecType::MPEG2},
    {AV_CODEC_ID_H263, CodecType::H263},
    {AV_CODEC_ID_MJPEG, CodecType::MJPEG},
    {AV_CODEC_ID_VP8, CodecType::VP8},
    {AV_CODEC_ID_VVC, CodecType::VVC},
}};

constexpr AVRational kMicroseconds{1, 1'000'000};

}  // namespace

std::optional<CodecType> codecTypeOf(AVCodecID id) {
    auto const* const codec = std::find_if(kCodecs.begin(), kCodecs.end(),
                                           [id](auto const& entry) { return entry.first == id; });
    return codec == kCodecs.end() ? std::nullopt : std::optional(codec->second);
}

ClipReader::ClipReader(std::string path) : mPath(std::move(path)) {
    // The prefix keeps a name with a colon from being taken for a network address.
    AVFormatContext* opened = nullptr;
    int result = avformat_open_input(&opened, ("file:" + mPath).c_str(), nullptr, nullptr);
    if (result < 0) {
        throw UnusableFile(mPath + ": cannot be opened as a clip: " + errorText(result));
    }
    mFormat.reset(opened);
    result = avformat_find_stream_info(opened, nullptr);
    if (result < 0) {
        throw UnusableFile(mPath + ": cannot be read: " + errorText(result));
    }
    int const index = av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    // The cover of a music file is a video stream too, of one picture that is no frame.
    if (index < 0 || (opened->streams[index]->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
        throw UnusableFile(mPath + ": holds no video");
    }
    mStream = opened->streams[index];

    AVCodecID const id = mStream->codecpar->codec_id;
    std::string const name = avcodec_get_name(id);
    std::optional<CodecType> const type = codecTypeOf(id);
    if (!type) {
        throw UnusableFile(mPath + ": its video is " + name + ", which the platform does not know");
    }
    mCodecType = *type;
    if (avcodec_find_decoder(id) == nullptr) {
        throw UnusableFile(mPath + ": libavcodec has no decoder for " + name);
    }
    for (unsigned int other = 0; other < opened->nb_streams; ++other) {
        if (other != static_cast<unsigned int>(index)) {
            opened->streams[other]->discard = AVDISCARD_ALL;
        }
    }
}

PacketPtr ClipReader::next() {
    PacketPtr packet(av_packet_alloc());
    for (;;) {
        int const result = av_read_frame(mFormat.get(), packet.get());
        if (result == AVERROR_EOF && mLastIsIncomplete) {
            throw UnusableFile(mPath + ": is cut short: it ends within a frame");
        }
        if (result == AVERROR_EOF) {
            return nullptr;
        }
        if (result < 0) {
            throw UnusableFile(mPath + ": is damaged: " + errorText(result));
        }
        if (packet->stream_index == mStream->index) {
            mLastIsIncomplete = (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
            return packet;
        }
        av_packet_unref(packet.get());
    }
}

unsigned long long ClipReader::timestampUs(AVPacket const& frame) const {
    std::int64_t const time = frame.pts != AV_NOPTS_VALUE ? frame.pts : frame.dts;
    if (time == AV_NOPTS_VALUE) {
        return 0;
    }
    std::int64_t const start = mStream->start_time != AV_NOPTS_VALUE ? mStream->start_time : 0;
    std::int64_t const us = av_rescale_q(time - start, mStream->time_base, kMicroseconds);
    return static_cast<unsigned long long>(std::max<std::int64_t>(us, 0));
}

int ClipReader::frameRate() const {
    AVRational const rate = av_guess_frame_rate(mFormat.get(), mStream, nullptr);
    return rate.den == 0 ? 0 : static_cast<int>(std::lround(av_q2d(rate)));
}

Clip inspectClip(std::string const& path, std::function<void(unsigned int)> const& onProgress) {
    ClipReader reader(path);
    AVCodecParameters const& parameters = reader.parameters();
    AVCodec const* const codec = avcodec_find_decoder(parameters.codec_id);
    CodecContextPtr const decoder(avcodec_alloc_context3(codec));
    decoder->thread_count = 0;
    int result = avcodec_parameters_to_context(decoder.get(), &parameters);
    if (result >= 0) {
        result = avcodec_open2(decoder.get(), codec, nullptr);
    }
    if (result < 0) {
        throw UnusableFile(path + ": its video cannot be decoded: " + errorText(result));
    }

    Clip clip;
    clip.path = path;
    clip.codecName = avcodec_get_name(parameters.codec_id);
    clip.codecType = reader.codecType();
    clip.frameRate = reader.frameRate();
    FramePtr const frame(av_frame_alloc());
    // A frame that cannot be decoded is skipped, as a decoder in a television does.
    auto const countDecoded = [&] {
        int received = 0;
        while (received != AVERROR(EAGAIN) && received != AVERROR_EOF) {
            received = avcodec_receive_frame(decoder.get(), frame.get());
            if (received == 0) {
                if (clip.frames == 0) {
                    clip.width = frame->width;
                    clip.height = frame->height;
                }
                ++clip.frames;
                onProgress(clip.frames);
            }
        }
    };
    while (PacketPtr const packet = reader.next()) {
        avcodec_send_packet(decoder.get(), packet.get());
        countDecoded();
    }
    avcodec_send_packet(decoder.get(), nullptr);
    countDecoded();
    if (clip.frames == 0) {
        throw UnusableFile(path + ": holds no picture that can be decoded");
    }
    return clip;
}

}  // namespace kvo::demo
