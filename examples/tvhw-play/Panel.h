#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Player.h"
#include "host/HostPlatform.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"

namespace kvo::media::hardware::example {

using Window = host::ScalerChannel::Window;

/// Returns a window for people: its size and its place.
std::string windowText(Window const& window);

/// What a channel of the scaler has on the panel: in `output`, `input` of a picture, in its pixels,
/// or black where there is none.
struct ShownWindow {
    Window output;
    Window input;
    FramePtr picture;
};

/// Calls `show` for the window of each channel, the lowest first.
void forEachWindow(DisplayPorts& ports, std::function<void(ShownWindow)> const& show);

/// Returns lines of text as a picture in RGB of three bytes.
FramePtr drawText(std::string const& text, Size size);

/// Returns what a viewer sees on the host platform's panel, with a frame around it and `caption`
/// below, which has no colon and no quotes: the menu, in it the black and outlined `place` that the
/// television's program has for the video; on it the picture of the video output; on top the
/// windows of the scaler's channels with the pictures of the ports that they are connected to. A
/// window without a picture, and one that is blank, is black.
FramePtr drawPanel(DisplayPorts& ports, Window const& place, std::string const& caption);

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
