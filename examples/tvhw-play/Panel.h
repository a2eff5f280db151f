#pragma once

#include <string>

#include "Clip.h"
#include "DisplayPorts.h"
#include "Libav.h"
#include "host/HostPlatform.h"

namespace kvo::media::hardware::example {

/// Returns the part of a picture that a channel shows, in the picture's pixels.
host::ScalerChannel::Window inputOf(host::ScalerChannel const& channel, AVFrame const& picture);

/// Returns lines of text as a picture in RGB of three bytes.
FramePtr drawText(std::string const& text, Size size);

/// Returns what a viewer sees on the host platform's panel, with a frame around it and `caption`
/// below, which has no colon and no quotes: the menu, in it the black and outlined `place` that the
/// television's program has for the video; on it the picture of the video output; on top the
/// windows of the scaler's channels with the pictures of the ports that they are connected to. A
/// window without a picture, and one that is blank, is black.
FramePtr drawPanel(DisplayPorts& ports, host::ScalerChannel::Window const& place,
                   std::string const& caption);

}  // namespace kvo::media::hardware::example
