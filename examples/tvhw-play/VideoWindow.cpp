#include "VideoWindow.h"

#include <utility>

#include "fmt/core.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::example {

namespace {

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
