#include "ClipWriter.h"

#include <cstring>
#include <utility>

namespace kvo::media::hardware::example {

void ClipWriter::Close::operator()(AVFormatContext* format) const {
    avio_closep(&format->pb);
    avformat_free_context(format);
}

ClipWriter::ClipWriter(std::string path, AVCodecID codec, int frameRate, AVFrame const& example)
    : mPath(std::move(path)), mFrameRate(frameRate), mDescription(avcodec_parameters_alloc()) {
    mDescription->codec_type = AVMEDIA_TYPE_VIDEO;
    mDescription->codec_id = codec;
    mDescription->width = example.width;
    mDescription->height = example.height;
    mDescription->sample_aspect_ratio = example.sample_aspect_ratio;
    mDescription->color_primaries = example.color_primaries;
    mDescription->color_trc = example.color_trc;
    mDescription->color_space = example.colorspace;
    mDescription->color_range = example.color_range;
}

ClipWriter::~ClipWriter() {
    if (mFormat != nullptr) {
        av_write_trailer(mFormat.get());
    }
}

void ClipWriter::begin(unsigned char const* data, unsigned int length) {
    std::string const failure = "cannot write " + mPath;
    std::string const url = "file:" + mPath;
    AVFormatContext* format = nullptr;
    requireLibav(avformat_alloc_output_context2(&format, nullptr, nullptr, url.c_str()), failure);
    std::unique_ptr<AVFormatContext, Close> begun(format);
    AVStream* const stream = avformat_new_stream(format, nullptr);
    require(stream != nullptr, failure);
    stream->time_base = kMicroseconds;
    stream->avg_frame_rate = {mFrameRate, 1};
    stream->sample_aspect_ratio = mDescription->sample_aspect_ratio;
    if (mDescription->codec_id == AV_CODEC_ID_H264) {
        // The container keeps the parameter sets apart; it finds them in the first picture.
        void* const copy = av_mallocz(length + AV_INPUT_BUFFER_PADDING_SIZE);
        require(copy != nullptr, failure);
        mDescription->extradata = static_cast<std::uint8_t*>(std::memcpy(copy, data, length));
        mDescription->extradata_size = static_cast<int>(length);
    }
    requireLibav(avcodec_parameters_copy(stream->codecpar, mDescription.get()), failure);
    requireLibav(avio_open(&format->pb, url.c_str(), AVIO_FLAG_WRITE), failure);
    requireLibav(avformat_write_header(format, nullptr), failure);
    mFormat = std::move(begun);
}

void ClipWriter::write(unsigned long long timestampUs, unsigned char const* data,
                       unsigned int length, bool isKey) {
    if (mFormat == nullptr) {
        begin(data, length);
    }
    PacketPtr const packet(av_packet_alloc());
    requireLibav(av_new_packet(packet.get(), static_cast<int>(length)), "no memory for a picture");
    std::memcpy(packet->data, data, length);
    packet->pts = packet->dts = static_cast<std::int64_t>(timestampUs);
    packet->duration = av_rescale_q(1, {1, mFrameRate}, kMicroseconds);
    packet->flags = isKey ? AV_PKT_FLAG_KEY : 0;
    av_packet_rescale_ts(packet.get(), kMicroseconds, mFormat->streams[0]->time_base);
    requireLibav(av_write_frame(mFormat.get(), packet.get()), "cannot write " + mPath);
}

void ClipWriter::finish() {
    if (mFormat == nullptr) {
        return;
    }
    auto const format = std::move(mFormat);  // A clip is ended once, even if that fails.
    requireLibav(av_write_trailer(format.get()), "cannot write " + mPath);
    requireLibav(avio_closep(&format->pb), "cannot write " + mPath);
}

}  // namespace kvo::media::hardware::example
