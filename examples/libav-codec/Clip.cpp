#include "Clip.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <utility>

#include "fmt/core.h"

extern "C" {
#include <libavutil/display.h>
}

namespace kvo::media::hardware::example {

namespace {

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

constexpr int kUsualFrameRate = 25;

}  // namespace

std::optional<CodecType> codecTypeOf(AVCodecID id) {
    auto const* const codec = std::find_if(kCodecs.begin(), kCodecs.end(),
                                           [id](auto const& entry) { return entry.first == id; });
    return codec == kCodecs.end() ? std::nullopt : std::optional(codec->second);
}

ClipReader::ClipReader(std::string path, Part part) : mPath(std::move(path)), mPart(part) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(mPath, error)) {
        // It is read many times over, and from many places.
        throw UnusableFile(
            mPath + ": " +
            (error ? error.message() : "is no file but a directory, pipe or device"));
    }
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
    if (mPart.from > 0) {
        mFirstTime = startTime() + ticks(mPart.from);
        result = av_seek_frame(opened, index, *mFirstTime, AVSEEK_FLAG_BACKWARD);
        if (result < 0) {
            throw UnusableFile(fmt::format("{}: second {:g} cannot be reached: {}", mPath,
                                           mPart.from, errorText(result)));
        }
    }
}

std::int64_t ClipReader::startTime() const {
    return mStream->start_time != AV_NOPTS_VALUE ? mStream->start_time : 0;
}

std::int64_t ClipReader::ticks(double seconds) const {
    return std::llround(seconds / av_q2d(mStream->time_base));
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
            mFirstTime = mFirstTime.value_or(time);
            if (mPart.from > 0 && packet->pts < *mFirstTime) {
                packet->flags |= AV_PKT_FLAG_DISCARD;
            }
            bool const isPastEnd = mPart.length > 0 && time - *mFirstTime >= ticks(mPart.length);
            return isPastEnd ? nullptr : std::move(packet);
        }
        av_packet_unref(packet.get());
    }
}

unsigned long long ClipReader::timestampUs(AVPacket const& frame) const {
    std::int64_t const time = frame.pts != AV_NOPTS_VALUE ? frame.pts : frame.dts;
    if (time == AV_NOPTS_VALUE) {
        return 0;
    }
    std::int64_t const us = av_rescale_q(time - startTime(), mStream->time_base, kMicroseconds);
    return static_cast<unsigned long long>(std::max<std::int64_t>(us, 0));
}

int ClipReader::frameRate() const {
    AVRational const rate = av_guess_frame_rate(mFormat.get(), mStream, nullptr);
    return rate.den == 0 ? 0 : static_cast<int>(std::lround(av_q2d(rate)));
}

double ClipReader::duration() const {
    return mFormat->duration > 0 ? static_cast<double>(mFormat->duration) / AV_TIME_BASE : 0;
}

std::string ClipReader::presentation() const {
    AVRational const aspect = mStream->sample_aspect_ratio;
    std::string filters = aspect.num > 0 && aspect.den > 0
                              ? fmt::format("setsar={}/{},", aspect.num, aspect.den)
                              : "";
    std::size_t size = 0;
    auto const* const matrix = reinterpret_cast<std::int32_t const*>(
        av_stream_get_side_data(mStream, AV_PKT_DATA_DISPLAYMATRIX, &size));
    if (matrix != nullptr && size >= 9 * sizeof(std::int32_t)) {
        // Entries 0 and 1 say where a step to the right leads, 3 and 4 where one down leads.
        bool const isSideways = std::abs(matrix[0]) < std::abs(matrix[1]);
        filters += isSideways ? "transpose=cclock_flip," : "";
        filters += matrix[isSideways ? 3 : 0] < 0 ? "hflip," : "";
        filters += matrix[isSideways ? 1 : 4] < 0 ? "vflip," : "";
    }
    return filters;
}

Clip inspectClip(std::string const& path, Part part,
                 std::function<void(unsigned int)> const& onProgress) {
    ClipReader reader(path, part);
    AVCodecParameters const& parameters = reader.parameters();
    AVCodec const* const codec = avcodec_find_decoder(parameters.codec_id);
    CodecContextPtr const decoder(avcodec_alloc_context3(codec));
    decoder->thread_count = 0;
    avcodec_parameters_to_context(decoder.get(), &parameters);
    int result = avcodec_open2(decoder.get(), codec, nullptr);
    if (result < 0) {
        throw UnusableFile(path + ": its video cannot be decoded: " + errorText(result));
    }

    Clip clip;
    clip.path = path;
    clip.part = part;
    clip.codecName = avcodec_get_name(parameters.codec_id);
    clip.codecType = reader.codecType();
    clip.frameRate = reader.frameRate() > 0 ? reader.frameRate() : kUsualFrameRate;
    clip.duration = reader.duration();
    FramePtr frame(av_frame_alloc());
    FramePtr last(av_frame_alloc());
    std::string const presentation = "[in0]" + reader.presentation() + "null";
    // A frame that cannot be decoded is skipped, as a decoder in a television does.
    auto const decode = [&](AVPacket const* packet) {
        result = avcodec_send_packet(decoder.get(), packet);
        do {
            clip.undecodable += result < 0 ? 1U : 0U;
            result = avcodec_receive_frame(decoder.get(), frame.get());
            if (result < 0) {
                continue;
            }
            if (clip.frames == 0) {
                FramePtr const shown = filtered({frame.get()}, presentation);
                clip.coded = {frame->width, frame->height};
                clip.shown = {shown->width, shown->height};
            }
            ++clip.frames;
            if (onProgress) {
                onProgress(clip.frames);
            }
            std::swap(frame, last);
        } while (result != AVERROR(EAGAIN) && result != AVERROR_EOF);
    };
    PacketPtr packet;
    do {
        packet = reader.next();
        decode(packet.get());
    } while (packet != nullptr && (onProgress || clip.frames == 0));
    if (clip.frames == 0) {
        throw UnusableFile(path + ": holds no picture that can be decoded");
    }
    clip.sampleAspect = filtered({last.get()}, presentation)->sample_aspect_ratio;
    return clip;
}

}  // namespace kvo::media::hardware::example
