#pragma once

#include <initializer_list>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "kvo/media/hardware/Export.h"

/// What the stand-in libraries share: every operation of a platform library begins with
/// platformCall(), which counts and records it and tells whether it is to fail.
namespace kvo::host {

/// Says whether the journal records.
KVO_MEDIA_EXPORT bool isRecording();

/// Counts a call of `operation`, and records it with `arguments` when the journal records. Returns
/// the code that the call must return, or nothing when it is to do its work.
KVO_MEDIA_EXPORT std::optional<int> enterPlatformCall(char const* operation,
                                                      std::string const& arguments);

/// Records a log line.
KVO_MEDIA_EXPORT void recordLogLine(std::string text, char const* file, int line);

/// Registers what reset() does for one stand-in library. Called once, as the library is loaded.
KVO_MEDIA_EXPORT void onReset(void (*handler)());

/// As enterPlatformCall, with the arguments as values; they are printed only for the journal.
template <typename... Arguments>
std::optional<int> platformCall(char const* operation, Arguments const&... arguments) {
    if (!isRecording()) {
        return enterPlatformCall(operation, {});
    }
    std::ostringstream text;
    [[maybe_unused]] char const* separator = "";
    ((text << std::exchange(separator, ", ") << arguments), ...);
    return enterPlatformCall(operation, text.str());
}

}  // namespace kvo::host
