#include "Clip.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <utility>

extern "C" {
#include <libavutil/display.h>
}

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

constexpr unsigned long long kSecondUs = 1'000'000;

/// The clip is read many times over, and from many places: that takes a file.
void requireRegularFile(std::string const& path) {
    std::error_code error;
    std::filesystem::file_status const status = std::filesystem::status(path, error);
    switch (status.type()) {
        case std::filesystem::file_type::regular:
            return;
        case std::filesystem::file_type::directory:
            throw UnusableFile(path + ": is a directory");
        case std::filesystem::file_type::fifo:
            throw UnusableFile(path + ": is a pipe, but the clip has to be read more than once");
        case std::filesystem::file_type::character:
        case std::filesystem::file_type::block:
            throw UnusableFile(path + ": is a device, not a file");
        default:
            throw UnusableFile(path + ": " + (error ? error.message() : "is not a file"));
    }
}

}  // namespace

Size fitInto(Size shape, Size limit) {
    double const scale = std::min(static_cast<double>(limit.width) / shape.width,
                                  static_cast<double>(limit.height) / shape.height);
    auto const even = [scale](int length, int largest) {
        return std::clamp(static_cast<int>(std::lround(length * scale / 2)) * 2, 2, largest & ~1);
    };
    return {even(shape.width, limit.width), even(shape.height, limit.height)};
}

std::optional<CodecType> codecTypeOf(AVCodecID id) {
    auto const* const codec = std::find_if(kCodecs.begin(), kCodecs.end(),
                                           [id](auto const& entry) { return entry.first == id; });
    return codec == kCodecs.end() ? std::nullopt : std::optional(codec->second);
}

ClipReader::ClipReader(std::string path, unsigned int seconds)
    : mPath(std::move(path)), mSeconds(seconds) {
    requireRegularFile(mPath);
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
            std::int64_t const time = packet->dts != AV_NOPTS_VALUE ? packet->dts : packet->pts;
            bool const isPastEnd = mSeconds > 0 && sinceStartUs(time) >= mSeconds * kSecondUs;
            return isPastEnd ? nullptr : std::move(packet);
        }
        av_packet_unref(packet.get());
    }
}

unsigned long long ClipReader::sinceStartUs(std::int64_t time) const {
    if (time == AV_NOPTS_VALUE) {
        return 0;
    }
    std::int64_t const start = mStream->start_time != AV_NOPTS_VALUE ? mStream->start_time : 0;
    std::int64_t const us = av_rescale_q(time - start, mStream->time_base, kMicroseconds);
    return static_cast<unsigned long long>(std::max<std::int64_t>(us, 0));
}

unsigned long long ClipReader::timestampUs(AVPacket const& frame) const {
    return sinceStartUs(frame.pts != AV_NOPTS_VALUE ? frame.pts : frame.dts);
}

int ClipReader::frameRate() const {
    AVRational const rate = av_guess_frame_rate(mFormat.get(), mStream, nullptr);
    return rate.den == 0 ? 0 : static_cast<int>(std::lround(av_q2d(rate)));
}

AVRational ClipReader::sampleAspect(AVFrame& picture) const {
    AVRational const aspect = av_guess_sample_aspect_ratio(mFormat.get(), mStream, &picture);
    return aspect.num > 0 && aspect.den > 0 ? aspect : AVRational{1, 1};
}

std::string ClipReader::turn() const {
    std::size_t size = 0;
    auto const* const matrix = reinterpret_cast<std::int32_t const*>(
        av_stream_get_side_data(mStream, AV_PKT_DATA_DISPLAYMATRIX, &size));
    if (matrix == nullptr || size < 9 * sizeof(std::int32_t)) {
        return "";
    }
    // Entries 0 and 1 say where a step to the right leads, 3 and 4 where one down leads.
    bool const isSideways = std::abs(matrix[0]) < std::abs(matrix[1]);
    std::string filters = isSideways ? "transpose=cclock_flip," : "";
    filters += matrix[isSideways ? 3 : 0] < 0 ? "hflip," : "";
    filters += matrix[isSideways ? 1 : 4] < 0 ? "vflip," : "";
    return filters;
}

Size Clip::shapeOf(Size picture) const {
    int width = 0;
    int height = 0;
    av_reduce(&width, &height, std::int64_t{picture.width} * sampleAspect.num,
              std::int64_t{picture.height} * sampleAspect.den, 1 << 20);
    return {std::max(width, 1), std::max(height, 1)};
}

Clip inspectClip(std::string const& path, unsigned int seconds,
                 std::function<void(unsigned int)> const& onProgress) {
    ClipReader reader(path, seconds);
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
    clip.seconds = seconds;
    clip.codecName = avcodec_get_name(parameters.codec_id);
    clip.codecType = reader.codecType();
    clip.frameRate = reader.frameRate();
    FramePtr const frame(av_frame_alloc());
    // A frame that cannot be decoded is skipped, as a decoder in a television does.
    auto const count = [&](AVPacket const* packet) {
        clip.undecodable += avcodec_send_packet(decoder.get(), packet) < 0 ? 1U : 0U;
        for (int received = 0; received != AVERROR(EAGAIN) && received != AVERROR_EOF;) {
            received = avcodec_receive_frame(decoder.get(), frame.get());
            if (received == 0 && clip.frames == 0) {
                clip.coded = {frame->width, frame->height};
                frame->sample_aspect_ratio = reader.sampleAspect(*frame);
                FramePtr const turned = filtered({frame.get()}, "[in0]" + reader.turn() + "null");
                clip.shown = {turned->width, turned->height};
                clip.sampleAspect = turned->sample_aspect_ratio;
            }
            if (received == 0) {
                bool const isMended =
                    frame->decode_error_flags != 0 || (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0;
                clip.damaged += isMended ? 1U : 0U;
                onProgress(++clip.frames);
            } else if (received != AVERROR(EAGAIN) && received != AVERROR_EOF) {
                ++clip.undecodable;
            }
        }
    };
    while (PacketPtr const packet = reader.next()) {
        count(packet.get());
    }
    count(nullptr);
    if (clip.frames == 0) {
        throw UnusableFile(path + ": holds no picture that can be decoded");
    }
    return clip;
}

}  // namespace kvo::demo
