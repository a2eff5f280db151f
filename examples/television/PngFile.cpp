#include "PngFile.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace kvo::demo {

void writePng(std::string const& path, AVFrame const& picture) {
    FramePtr const rgb = convertFrame(picture, AV_PIX_FMT_RGB24, picture.width, picture.height);
    AVCodec const* const codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    require(codec != nullptr, "libavcodec has no PNG encoder");
    CodecContextPtr const encoder(avcodec_alloc_context3(codec));
    encoder->pix_fmt = AV_PIX_FMT_RGB24;
    encoder->width = rgb->width;
    encoder->height = rgb->height;
    encoder->time_base = {1, 1};
    requireLibav(avcodec_open2(encoder.get(), codec, nullptr), "cannot open the PNG encoder");

    PacketPtr const packet(av_packet_alloc());
    requireLibav(avcodec_send_frame(encoder.get(), rgb.get()), "cannot encode PNG");
    requireLibav(avcodec_send_frame(encoder.get(), nullptr), "cannot encode PNG");
    requireLibav(avcodec_receive_packet(encoder.get(), packet.get()), "cannot encode PNG");

    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<char const*>(packet->data), packet->size);
    file.close();
    if (!file) {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
        throw DemoFailure("cannot write " + path);
    }
}

}  // namespace kvo::demo
