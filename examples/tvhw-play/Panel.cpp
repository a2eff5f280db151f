#include "Panel.h"

#include <algorithm>
#include <vector>

#include "fmt/core.h"

namespace kvo::media::hardware::example {

namespace {

using Window = host::ScalerChannel::Window;

// The frame around the panel, in pixels.
constexpr int kFrame = 36;
constexpr int kCaption = 96;  ///< The part below the panel.
constexpr int kOutline = 6;

/// Returns a filter that fills a rectangle of the panel, and `margin` pixels around it.
std::string box(Window const& window, int margin, char const* color) {
    return fmt::format(",drawbox={}:{}:{}:{}:{}:fill", kFrame + window.x - margin,
                       kFrame + window.y - margin, window.width + 2 * margin,
                       window.height + 2 * margin, color);
}

/// The menu is blue, so that black is seen to be black.
std::string emptyPanel(host::Panel const& panel) {
    return fmt::format(
        "gradients=seed=7:size={0}x{1}:nb_colors=2:c0=0x4a6fa5:c1=0x16203a:x0=0:y0=0:x1={0}:y1={1},"
        "format=gbrp,pad=iw+{2}:ih+{3}:{4}:{4}:0x202020",
        panel.width, panel.height, 2 * kFrame, kFrame + kCaption, kFrame);
}

std::string captionText(host::Panel const& panel, std::string const& caption) {
    return fmt::format(
        ",drawtext=font=DejaVu Sans:fontsize=40:fontcolor=white:expansion=none:text='{}'"
        ":x=(w-tw)/2:y={}",
        caption, panel.height + kFrame + kCaption / 4);
}

FramePtr stillFrame(host::ShownPicture const& still) {
    FramePtr frame(av_frame_alloc());
    frame->format = AV_PIX_FMT_RGB0;
    frame->width = still.width;
    frame->height = still.height;
    // libavfilter copies a frame that does not own its bytes.
    frame->data[0] = const_cast<unsigned char*>(still.memory->data());
    frame->linesize[0] = still.stride;
    return frame;
}

/// Returns the filters, in RGB so that chroma is not cut unevenly, from a picture to a window's
/// content.
std::string windowContent(host::ScalerChannel const& channel, AVFrame const& picture) {
    Window const input = inputOf(channel, picture);
    return fmt::format(
        "scale=flags=accurate_rnd+full_chroma_int,format=gbrp,crop={}:{}:{}:{},"
        "scale={}:{}:flags=bicubic+accurate_rnd,setsar=1",
        input.width, input.height, input.x, input.y, channel.output.width, channel.output.height);
}

}  // namespace

Window inputOf(host::ScalerChannel const& channel, AVFrame const& picture) {
    host::Panel const panel = host::panel();
    Window input = channel.input;
    if (channel.inputInPanelPixels) {
        input.x = input.x * picture.width / panel.width;
        input.y = input.y * picture.height / panel.height;
        input.width = input.width * picture.width / panel.width;
        input.height = input.height * picture.height / panel.height;
    }
    input.x = std::min(input.x, picture.width - 1);
    input.y = std::min(input.y, picture.height - 1);
    input.width = std::clamp(input.width, 1, picture.width - input.x);
    input.height = std::clamp(input.height, 1, picture.height - input.y);
    return input;
}

FramePtr drawText(std::string const& text, Size size) {
    std::string quoted;
    for (char const letter : text) {
        // Within quotes a backslash stands for itself, until the filter reads its options.
        quoted += letter == ':' || letter == '\\' ? "\\" : "";
        quoted += letter == '\'' ? '`' : letter;
    }
    return filtered({}, fmt::format("color=0x202020:size={}x{},format=rgb24,drawtext=font=DejaVu "
                                    "Sans Mono:fontsize=26:fontcolor=white:expansion=none:x=24:"
                                    "y=12:text='{}'",
                                    size.width, size.height, quoted));
}

FramePtr drawPanel(DisplayPorts& ports, Window const& place, std::string const& caption) {
    host::Panel const panel = host::panel();
    std::vector<FramePtr> pictures;
    std::string filters =
        emptyPanel(panel) + box(place, kOutline, "0xffc040") + box(place, 0, "black");
    // Lays a picture, after filters of its own, on what is drawn so far.
    auto const lay = [&](FramePtr picture, std::string const& content, int x, int y) {
        filters += fmt::format(
            "[below{0}];[in{0}]{1}[above{0}];[below{0}][above{0}]overlay=format=gbrp:x={2}:y={3}",
            pictures.size(), content, kFrame + x, kFrame + y);
        pictures.push_back(std::move(picture));
    };
    auto const still = host::videoOutput().picture;
    if (still) {
        lay(stillFrame(*still), "format=gbrp", still->x, still->y);
    }
    for (unsigned int index = 0; index < host::kScalerChannels; ++index) {
        host::ScalerChannel const channel = host::scalerChannel(index);
        Window const& output = channel.output;
        if (!channel.opened || output.width == 0 || output.height == 0) {
            continue;
        }
        FramePtr picture = channel.source ? ports.picture(channel.source->port) : nullptr;
        if (picture == nullptr || channel.blank) {
            filters += box(output, 0, "black");
        } else {
            std::string const content = windowContent(channel, *picture);
            lay(std::move(picture), content, output.x, output.y);
        }
    }
    std::vector<AVFrame const*> inputs;
    std::transform(pictures.begin(), pictures.end(), std::back_inserter(inputs),
                   [](FramePtr const& picture) { return picture.get(); });
    return filtered(inputs, filters + captionText(panel, caption));
}

}  // namespace kvo::media::hardware::example
