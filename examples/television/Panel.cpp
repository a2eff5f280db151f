#include "Panel.h"

#include <algorithm>
#include <vector>

namespace kvo::demo {

namespace {

using Window = host::ScalerChannel::Window;

// The frame around the panel, in pixels.
constexpr int kFrame = 36;
constexpr int kCaption = 96;  ///< The part below the panel.
constexpr int kOutline = 6;

/// Returns numbers as the filters take them.
std::string joined(std::vector<int> const& numbers) {
    std::string text;
    for (int const number : numbers) {
        text += (text.empty() ? "" : ":") + std::to_string(number);
    }
    return text;
}

/// Returns a filter that fills a rectangle of the panel, and `margin` pixels around it.
std::string box(Window const& window, int margin, std::string const& color) {
    return ",drawbox=" +
           joined({kFrame + window.x - margin, kFrame + window.y - margin,
                   window.width + 2 * margin, window.height + 2 * margin}) +
           ":" + color + ":fill";
}

/// The menu is blue, so that black is seen to be black.
std::string emptyPanel(host::Panel const& panel) {
    return "gradients=size=" + std::to_string(panel.width) + "x" + std::to_string(panel.height) +
           ":nb_colors=2:c0=0x4a6fa5:c1=0x16203a:x0=0:y0=0:x1=" + std::to_string(panel.width) +
           ":y1=" + std::to_string(panel.height) + ",format=gbrp,pad=" +
           joined({panel.width + 2 * kFrame, panel.height + kFrame + kCaption, kFrame, kFrame}) +
           ":0x202020";
}

std::string captionText(host::Panel const& panel, std::string const& caption) {
    return ",drawtext=font=DejaVu Sans:fontsize=40:fontcolor=white:expansion=none:x=(w-tw)/2:y=" +
           std::to_string(panel.height + kFrame + kCaption / 4) + ":text='" + caption + "'";
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

/// Returns the part of a picture that a channel shows, in the picture's pixels.
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

/// Returns the filters, in RGB so that chroma is not cut unevenly, from a picture to a window's
/// content.
std::string windowContent(host::ScalerChannel const& channel, AVFrame const& picture) {
    Window const input = inputOf(channel, picture);
    return "scale=flags=accurate_rnd+full_chroma_int,format=gbrp,crop=" +
           joined({input.width, input.height, input.x, input.y}) +
           ",scale=" + joined({channel.output.width, channel.output.height}) +
           ":flags=bicubic+accurate_rnd,setsar=1";
}

}  // namespace

FramePtr drawPanel(DisplayPorts& ports, Window const& place, std::string const& caption) {
    host::Panel const panel = host::panel();
    std::vector<FramePtr> pictures;
    std::string filters =
        emptyPanel(panel) + box(place, kOutline, "0xffc040") + box(place, 0, "black");
    // Lays a picture, after filters of its own, on what is drawn so far.
    auto const lay = [&](FramePtr picture, std::string const& content, int x, int y) {
        std::string const number = std::to_string(pictures.size());
        filters += "[below" + number + "];[in" + number + "]" + content + "[above" + number +
                   "];[below" + number + "][above" + number +
                   "]overlay=format=gbrp:x=" + std::to_string(kFrame + x) +
                   ":y=" + std::to_string(kFrame + y);
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

}  // namespace kvo::demo
