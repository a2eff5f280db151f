#pragma once

#include "Show.h"

/// The acts that show the encoder wrapper. As the decoder's acts in what they add and throw.
namespace kvo::demo {

/// Records the clip as AVC and as VP8, and reads both recordings back.
void recordClip(Show& show);

/// Recorders and one encoder core: a live one takes it from another, and keeps it.
void contendForEncoder(Show& show);

}  // namespace kvo::demo
