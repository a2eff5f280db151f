#pragma once

#include "kvo/media/hardware/Status.h"

/// What the codecs answer, but for success.
namespace kvo::media::hardware::example::codec_status {

/// There is no room for input, or no output yet.
inline constexpr Status kTryAgain{-11};
inline constexpr Status kInvalid{-22};
/// The codec was not configured, or has been released.
inline constexpr Status kNotRunning{-32};

}  // namespace kvo::media::hardware::example::codec_status
