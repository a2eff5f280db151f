#pragma once

#include "Demonstration.h"

/// The acts of the demo. Each adds to the demo's summary, and throws Failure when the library
/// or the platform does anything but what it is there to show; those that play the clip throw
/// UnusableFile when no core of the platform takes it. None leaves anything held.
namespace kvo::media::hardware::example {

/// Decodes every picture of the clip in pixel mode, and saves the last one.
void playPixels(Demonstration& demo);

/// Plays the clip in tunnel mode on a display port.
void playTunnel(Demonstration& demo);

/// Two players and one core: the second takes it while the first is in mid-stream.
void loseCore(Demonstration& demo);

/// Plays the clip on the panel, in windows that move, and blank while the source changes.
void playOnPanel(Demonstration& demo);

/// Shows the last picture of the clip as a still, after playPixels() if that is still to do.
void showStill(Demonstration& demo);

/// Records the clip as AVC and as VP8, and reads both recordings back.
void recordClip(Demonstration& demo);

/// Recorders and one encoder core: a live one takes it from another, and keeps it.
void contendForEncoder(Demonstration& demo);

}  // namespace kvo::media::hardware::example
