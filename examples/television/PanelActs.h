#pragma once

#include "Show.h"

/// The acts that show the scaler client and the image sink, with pictures of the panel. As the
/// decoder's acts in what they add and throw.
namespace kvo::demo {

/// Plays the clip on the panel, in windows that move, and blank while the source changes.
void playOnPanel(Show& show);

/// Shows the last picture of the clip as a still.
void showStill(Show& show);

}  // namespace kvo::demo
