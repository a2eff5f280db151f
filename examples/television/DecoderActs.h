#pragma once

#include "Show.h"

/// The acts that show the decoder wrapper. Each adds to the show's summary, and throws DemoFailure
/// when the library or the platform does anything but what it is there to show. None leaves
/// anything held at the resource manager.
namespace kvo::demo {

/// Decodes every picture of the clip in pixel mode, and saves the last one. Throws UnusableFile
/// when no core of the platform takes the clip.
void playPixels(Show& show);

/// Plays the clip in tunnel mode on a display port.
void playTunnel(Show& show);

/// Two players and one core: the second takes it while the first is in mid-stream.
void loseCore(Show& show);

}  // namespace kvo::demo
