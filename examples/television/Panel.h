#pragma once

#include <string>

#include "DisplayPorts.h"
#include "Libav.h"
#include "host/HostPlatform.h"

namespace kvo::media::hardware::demo {

/// Returns what a viewer sees on the host platform's panel, with a frame around it and `caption`
/// below, which has no colon and no quotes: the menu, in it the black and outlined `place` that the
/// television's program has for the video; on it the picture of the video output; on top the
/// windows of the scaler's channels with the pictures of the ports that they are connected to. A
/// window without a picture, and one that is blank, is black.
FramePtr drawPanel(DisplayPorts& ports, host::ScalerChannel::Window const& place,
                   std::string const& caption);

}  // namespace kvo::media::hardware::demo
