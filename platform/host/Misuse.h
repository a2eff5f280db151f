#pragma once

#include <string>

#include "kvo/media/hardware/Export.h"

/// Mistakes of the program that the stand-ins notice, said aloud: a line at level 1 under the tag
/// HostPlatform that tells what was done and what to do.
namespace kvo::host {

/// Says "mistake: ", `what` was done, and what to do instead. With KVO_HOST_MISUSE=abort ends the
/// process there. May be called from any thread.
KVO_MEDIA_EXPORT void tellMisuse(std::string const& what, char const* advice);

/// What to do when a codec is not stopped.
inline constexpr char kLetReleaseReturn[] =
    "let a codec's release() return, whatever its other calls are doing";

/// Sets who knows whether a client of the resource manager holds a display port, counted from 0.
/// Called once, as a library is loaded; without it every port is taken to be held.
KVO_MEDIA_EXPORT void setPortRegister(bool (*isHeld)(int port));

/// Says whether a client of the resource manager holds this display port, counted from 0.
KVO_MEDIA_EXPORT bool isPortHeld(int port);

}  // namespace kvo::host
