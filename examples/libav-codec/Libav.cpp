#include "Libav.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "fmt/core.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/imgutils.h>
}

namespace kvo::media::hardware::example {

namespace {

/// Lines from which on an undescribed picture is taken to be in the colours of HDTV.
constexpr int kHighDefinitionLines = 720;

/// Of the lines of a picture, in bytes.
constexpr int kLineAlignment = 16;

using FilterGraphPtr = std::unique_ptr<AVFilterGraph, FreeByAddress<avfilter_graph_free>>;
using FilterPadsPtr = std::unique_ptr<AVFilterInOut, FreeByAddress<avfilter_inout_free>>;

/// Returns the filter that feeds a graph with this picture, as input `index`.
std::string inputFilter(AVFrame const& picture, std::size_t index) {
    return fmt::format("buffer@in{0}={1}:{2}:{3}:1:1:{4}:{5}[in{0}];", index, picture.width,
                       picture.height, picture.format, picture.sample_aspect_ratio.num,
                       std::max(picture.sample_aspect_ratio.den, 1));
}

void feed(AVFilterGraph& graph, AVFrame const& picture, std::size_t index) {
    std::string const name = "buffer@in" + std::to_string(index);
    AVFilterContext* const input = avfilter_graph_get_filter(&graph, name.c_str());
    FramePtr const frame(av_frame_clone(&picture));
    require(input != nullptr && frame != nullptr, "libavfilter takes no picture");
    frame->pts = 0;
    if (frame->colorspace == AVCOL_SPC_UNSPECIFIED && frame->height >= kHighDefinitionLines) {
        frame->colorspace = AVCOL_SPC_BT709;
    }
    requireLibav(av_buffersrc_add_frame(input, frame.get()), "libavfilter takes no picture");
    requireLibav(av_buffersrc_add_frame(input, nullptr), "libavfilter takes no end of input");
}

}  // namespace

void require(bool condition, std::string const& expectation) {
    if (!condition) {
        throw Failure(expectation);
    }
}

std::string errorText(int code) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

int requireLibav(int result, std::string const& what) {
    if (result < 0) {
        throw Failure(what + ": " + errorText(result));
    }
    return result;
}

FramePtr filtered(std::vector<AVFrame const*> const& pictures, std::string const& filters) {
    std::string description;
    for (std::size_t index = 0; index < pictures.size(); ++index) {
        description += inputFilter(*pictures[index], index);
    }
    description += filters + ",buffersink@out";

    FilterGraphPtr const graph(avfilter_graph_alloc());
    graph->nb_threads = 1;  // Threads would cost more to start than one picture does.
    AVFilterInOut* openInputs = nullptr;
    AVFilterInOut* openOutputs = nullptr;
    int const parsed =
        avfilter_graph_parse2(graph.get(), description.c_str(), &openInputs, &openOutputs);
    FilterPadsPtr const freeInputs(openInputs);
    FilterPadsPtr const freeOutputs(openOutputs);
    requireLibav(parsed, "libavfilter cannot do " + filters);
    requireLibav(avfilter_graph_config(graph.get(), nullptr), "libavfilter cannot do " + filters);
    for (std::size_t index = 0; index < pictures.size(); ++index) {
        feed(*graph, *pictures[index], index);
    }
    FramePtr result(av_frame_alloc());
    AVFilterContext* const output = avfilter_graph_get_filter(graph.get(), "buffersink@out");
    requireLibav(av_buffersink_get_frame(output, result.get()), "libavfilter gave no picture");
    return result;
}

void writePng(std::string const& path, AVFrame const& picture) {
    FramePtr const rgb = filtered({&picture}, "[in0]format=rgb24");
    AVCodec const* const codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
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
    bool const isOpen = file.is_open();
    file.write(reinterpret_cast<char const*>(packet->data), packet->size);
    file.close();
    if (!file) {
        std::error_code ignored;
        // Not a device, a link, or what could not be written to.
        if (isOpen &&
            std::filesystem::is_regular_file(std::filesystem::symlink_status(path, ignored))) {
            std::filesystem::remove(path, ignored);
        }
        throw Failure("cannot write " + path);
    }
}

Size fitInto(Size shape, Size limit) {
    double const scale = std::min(static_cast<double>(limit.width) / shape.width,
                                  static_cast<double>(limit.height) / shape.height);
    auto const even = [scale](int length, int largest) {
        return std::clamp(static_cast<int>(std::lround(length * scale / 2)) * 2, 2, largest & ~1);
    };
    return {even(shape.width, limit.width), even(shape.height, limit.height)};
}

Size shapeOf(AVFrame const& picture) {
    AVRational const aspect = picture.sample_aspect_ratio;
    Size shape{picture.width, picture.height};
    if (aspect.num > 0 && aspect.den > 0) {
        av_reduce(&shape.width, &shape.height, std::int64_t{shape.width} * aspect.num,
                  std::int64_t{shape.height} * aspect.den, 1 << 20);
    }
    return {std::max(shape.width, 1), std::max(shape.height, 1)};
}

PixelInfo planarLayout(Size size) {
    PixelInfo info;
    info.width = size.width;
    info.height = size.height;
    for (int const divisor : {1, 2, 2}) {
        PixelInfo::Plane plane;
        plane.offset = info.length;
        int const width = (size.width + divisor - 1) / divisor;
        plane.stride = static_cast<std::uint32_t>(FFALIGN(width, kLineAlignment));
        plane.lines = static_cast<std::uint32_t>((size.height + divisor - 1) / divisor);
        info.length += plane.stride * plane.lines;
        info.planes.push_back(plane);
    }
    return info;
}

void copyPlanes(AVFrame const& picture, unsigned char* destination) {
    PixelInfo const info = planarLayout({picture.width, picture.height});
    av_image_copy_to_buffer(destination, static_cast<int>(info.length), picture.data,
                            picture.linesize, AV_PIX_FMT_YUV420P, picture.width, picture.height,
                            kLineAlignment);
}

void showPlanes(AVFrame& frame, unsigned char const* bytes, Size size) {
    frame.format = AV_PIX_FMT_YUV420P;
    frame.width = size.width;
    frame.height = size.height;
    av_image_fill_arrays(frame.data, frame.linesize, bytes, AV_PIX_FMT_YUV420P, size.width,
                         size.height, kLineAlignment);
}

ColorAspect colorsOf(AVFrame const& picture) {
    return {picture.color_primaries, picture.color_trc, picture.colorspace,
            picture.color_range == AVCOL_RANGE_JPEG ? 1 : 0};
}

}  // namespace kvo::media::hardware::example
