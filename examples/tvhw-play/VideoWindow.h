#pragma once

#include <memory>
#include <string>

#include "Player.h"
#include "host/HostPlatform.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"

namespace kvo::media::hardware::example {

using Window = host::ScalerChannel::Window;

/// Returns a window for people: its size and its place.
std::string windowText(Window const& window);

/// A window that a channel of the video scaler has for the pictures of a player in tunnel mode. For
/// one thread.
class VideoWindow {
public:
    /// `screen` is the space in which windows are placed, whatever the panel; `ports` have the
    /// pictures.
    VideoWindow(unsigned int channel, Size screen, std::shared_ptr<DisplayPorts> ports);

    /// Connects the window to the port that a player was granted; it stays blank.
    void connect(Player const& player, bool adaptive);

    /// Shows the port's picture, or this part of an adaptive stream's, as large in `place` as its
    /// shape lets it be. Returns false, and does nothing, while the port has no picture.
    bool place(Window const& place, Window const& adaptivePart);

    void disconnect() { mScaler.disconnect(); }

    /// Returns what the picture covers of the place, in pixels of the screen.
    [[nodiscard]] Window const& window() const { return mWindow; }
    [[nodiscard]] int port() const { return mLayer.port; }
    [[nodiscard]] bool isAdaptive() const { return mLayer.adaptive != 0; }

private:
    Size const mScreen;
    std::shared_ptr<DisplayPorts> const mPorts;
    VideoScalerClientTvhwImpl mScaler;
    IVideoScalerClient::LayerInfo mLayer;
    Window mWindow;
};

}  // namespace kvo::media::hardware::example
