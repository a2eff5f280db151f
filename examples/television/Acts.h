#pragma once

#include "Show.h"

/// The acts of the demo. Each adds to the show's summary, and throws DemoFailure when the library
/// or the platform does anything but what it is there to show; those that play the clip throw
/// UnusableFile when no core of the platform takes it. None leaves anything held.
namespace kvo::media::hardware::demo {

/// Decodes every picture of the clip in pixel mode, and saves the last one.
void playPixels(Show& show);

/// Plays the clip in tunnel mode on a display port.
void playTunnel(Show& show);

/// Two players and one core: the second takes it while the first is in mid-stream.
void loseCore(Show& show);

/// Plays the clip on the panel, in windows that move, and blank while the source changes.
void playOnPanel(Show& show);

/// Shows the last picture of the clip as a still, after playPixels() if that is still to do.
void showStill(Show& show);

/// Records the clip as AVC and as VP8, and reads both recordings back.
void recordClip(Show& show);

/// Recorders and one encoder core: a live one takes it from another, and keeps it.
void contendForEncoder(Show& show);

}  // namespace kvo::media::hardware::demo
