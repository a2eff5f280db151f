#pragma once

#include "kvo/media/hardware/Status.h"

/// What the demo's codecs answer, but for success.
namespace kvo::demo::codec_status {

/// There is no room for input, or no output yet.
inline constexpr media::hardware::Status kTryAgain{-11};
inline constexpr media::hardware::Status kInvalid{-22};
/// The codec was not configured, or has been released.
inline constexpr media::hardware::Status kNotRunning{-32};

}  // namespace kvo::demo::codec_status
