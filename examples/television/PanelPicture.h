#pragma once

#include "DisplayPorts.h"
#include "Libav.h"

namespace kvo::demo {

/// Returns what a viewer sees on the host platform's panel: the menu, on it the picture of the
/// video output, on top of both the windows of the scaler's channels with the pictures of the ports
/// that they are connected to. A window without a picture, and one that is blank, is black.
FramePtr drawPanel(DisplayPorts& ports);

}  // namespace kvo::demo
