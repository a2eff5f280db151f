#include "PanelPicture.h"

#include <algorithm>
#include <cstddef>

#include "host/HostPlatform.h"

namespace kvo::demo {

namespace {

using Window = host::ScalerChannel::Window;

constexpr int kBytesPerPixel = 3;
constexpr int kBytesPerStillPixel = 4;

constexpr int kMenuStripe = 60;  ///< Pixels.

std::uint8_t* pixelAt(AVFrame const& rgb, int x, int y) {
    return rgb.data[0] + std::ptrdiff_t{y} * rgb.linesize[0] + std::ptrdiff_t{x} * kBytesPerPixel;
}

/// Blue stripes, so that black is seen to be black.
void drawMenu(AVFrame& panel) {
    for (int y = 0; y < panel.height; ++y) {
        for (int x = 0; x < panel.width; ++x) {
            bool const light = (x + y) / kMenuStripe % 2 == 0;
            std::uint8_t* const pixel = pixelAt(panel, x, y);
            pixel[0] = light ? 40 : 32;
            pixel[1] = light ? 56 : 46;
            pixel[2] = light ? 96 : 80;
        }
    }
}

void drawStill(AVFrame& panel, host::ShownPicture const& still) {
    int const height = std::min(still.height, panel.height - still.y);
    int const width = std::min(still.width, panel.width - still.x);
    for (int y = 0; y < height; ++y) {
        unsigned char const* from = still.memory->data() + std::ptrdiff_t{y} * still.stride;
        for (int x = 0; x < width; ++x, from += kBytesPerStillPixel) {
            std::copy_n(from, kBytesPerPixel, pixelAt(panel, still.x + x, still.y + y));
        }
    }
}

/// Returns the part of a picture that a channel shows, in the picture's pixels.
Window inputOf(host::ScalerChannel const& channel, AVFrame const& picture, AVFrame const& panel) {
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

/// Returns what a window shows, in the window's size.
FramePtr windowContent(host::ScalerChannel const& channel, AVFrame const& picture,
                       AVFrame const& panel) {
    FramePtr const rgb = convertFrame(picture, AV_PIX_FMT_RGB24, picture.width, picture.height);
    Window const input = inputOf(channel, picture, panel);
    rgb->data[0] = pixelAt(*rgb, input.x, input.y);
    rgb->width = input.width;
    rgb->height = input.height;
    return convertFrame(*rgb, AV_PIX_FMT_RGB24, channel.output.width, channel.output.height);
}

void drawWindow(AVFrame& panel, host::ScalerChannel const& channel, AVFrame const* picture) {
    Window const& output = channel.output;
    if (!channel.opened || output.width == 0 || output.height == 0) {
        return;
    }
    FramePtr const content =
        picture == nullptr || channel.blank ? nullptr : windowContent(channel, *picture, panel);
    for (int y = 0; y < output.height; ++y) {
        std::uint8_t* const line = pixelAt(panel, output.x, output.y + y);
        int const length = output.width * kBytesPerPixel;
        if (content == nullptr) {
            std::fill_n(line, length, std::uint8_t{0});
        } else {
            std::copy_n(pixelAt(*content, 0, y), length, line);
        }
    }
}

}  // namespace

FramePtr drawPanel(DisplayPorts& ports) {
    host::Panel const size = host::panel();
    FramePtr panel = allocateFrame(AV_PIX_FMT_RGB24, size.width, size.height);
    drawMenu(*panel);
    if (auto const still = host::videoOutput().picture) {
        drawStill(*panel, *still);
    }
    for (unsigned int index = 0; index < host::kScalerChannels; ++index) {
        host::ScalerChannel const channel = host::scalerChannel(index);
        FramePtr const picture = channel.source ? ports.picture(channel.source->port) : nullptr;
        drawWindow(*panel, channel, picture.get());
    }
    return panel;
}

}  // namespace kvo::demo
