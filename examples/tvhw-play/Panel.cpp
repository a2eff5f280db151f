#include "Panel.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "fmt/core.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::example {

namespace {

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

/// The kind of source that a decoder's display port is to the scaler client.
constexpr std::uint32_t kDecoderSource = 1;

Region regionOf(Window const& window, Size space) {
    auto const number = [](int pixels) { return static_cast<std::uint32_t>(pixels); };
    return {number(window.x),
            number(window.y),
            number(window.x + window.width),
            number(window.y + window.height),
            number(space.width),
            number(space.height)};
}

/// Returns the largest window in the middle of `place` that has this shape, even throughout.
Window letterboxed(Size shape, Window const& place) {
    Size const size = fitInto(shape, {place.width, place.height});
    return {place.x + (place.width - size.width) / 4 * 2,
            place.y + (place.height - size.height) / 4 * 2, size.width, size.height};
}

}  // namespace

std::string windowText(Window const& window) {
    return fmt::format("{}x{} at {},{}", window.width, window.height, window.x, window.y);
}

void forEachWindow(DisplayPorts& ports, std::function<void(ShownWindow)> const& show) {
    for (unsigned int index = 0; index < host::kScalerChannels; ++index) {
        host::ScalerChannel const channel = host::scalerChannel(index);
        if (!channel.opened || channel.output.width == 0 || channel.output.height == 0) {
            continue;
        }
        bool const isShown = channel.source && !channel.blank;
        FramePtr picture = isShown ? ports.picture(channel.source->port) : nullptr;
        Window const input = picture == nullptr ? Window{} : inputOf(channel, *picture);
        show({channel.output, input, std::move(picture)});
    }
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
    forEachWindow(ports, [&](ShownWindow window) {
        Window const& input = window.input;
        Window const& output = window.output;
        if (window.picture == nullptr) {
            filters += box(output, 0, "black");
            return;
        }
        // In RGB, so that chroma is not cut unevenly.
        lay(std::move(window.picture),
            fmt::format("scale=flags=accurate_rnd+full_chroma_int,format=gbrp,crop={}:{}:{}:{},"
                        "scale={}:{}:flags=bicubic+accurate_rnd,setsar=1",
                        input.width, input.height, input.x, input.y, output.width, output.height),
            output.x, output.y);
    });
    std::vector<AVFrame const*> inputs;
    std::transform(pictures.begin(), pictures.end(), std::back_inserter(inputs),
                   [](FramePtr const& picture) { return picture.get(); });
    return filtered(inputs, filters + captionText(panel, caption));
}

VideoWindow::VideoWindow(unsigned int channel, Size screen, std::shared_ptr<DisplayPorts> ports)
    : mScreen(screen), mPorts(std::move(ports)), mScaler(channel) {}

void VideoWindow::connect(Player const& player, bool adaptive) {
    mLayer.type = kDecoderSource;
    mLayer.port = static_cast<std::uint8_t>(player.granted().getInt32(key::kVideoPort, -1));
    mLayer.adaptive = adaptive ? 1 : 0;
    mScaler.connect(mLayer);
}

bool VideoWindow::place(Window const& place, Window const& adaptivePart) {
    FramePtr const picture = mPorts->picture(mLayer.port);
    if (picture == nullptr) {
        return false;
    }
    Size const size{picture->width, picture->height};
    mWindow = letterboxed(shapeOf(*picture), place);
    mLayer.inputRegion = isAdaptive() ? regionOf(adaptivePart, mScreen)
                                      : regionOf({0, 0, size.width, size.height}, size);
    mLayer.outputRegion = regionOf(mWindow, mScreen);
    mScaler.updateRegion(mLayer);
    return true;
}

}  // namespace kvo::media::hardware::example
