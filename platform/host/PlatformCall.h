#pragma once

#include <initializer_list>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "host/LoggedCall.h"
#include "host/ReclaimAtCall.h"
#include "kvo/media/hardware/Export.h"

/// What the stand-in libraries share: every operation of a platform library is a PlatformCall.
namespace kvo::host {

/// Says whether the journal records.
KVO_MEDIA_EXPORT bool isRecording();

/// Says whether the arguments of platform calls are printed: for the journal or the log.
inline bool areCallsDescribed() { return isRecording() || mayLogCalls(); }

/// Says whether the platform has an operation of this name.
bool isOperation(std::string const& name);

/// Records a log line.
KVO_MEDIA_EXPORT void recordLogLine(std::string text, char const* file, int line);

/// Registers what reset() does for one stand-in library, as the library is loaded.
struct KVO_MEDIA_EXPORT OnReset {
    explicit OnReset(void (*handler)());
};

/// A call of a platform operation: counted as it is constructed; recorded with its
/// arguments and logged with its result and duration, too, where that is asked for; made to fail
/// where failCall says so.
class PlatformCall {
public:
    /// Begins a call. The arguments are printed only for the journal and the log.
    template <typename... Arguments>
    explicit PlatformCall(char const* operation, Arguments const&... arguments)
        : mReclaim(operation) {
        if (!areCallsDescribed()) {
            enter(operation, nullptr);
            return;
        }
        std::ostringstream text;
        text << operation << '(';
        [[maybe_unused]] char const* separator = "";
        ((text << std::exchange(separator, ", ") << arguments), ...);
        text << ')';
        std::string const description = text.str();
        enter(operation, &description);
        if (mayLogCalls()) {
            mLogged.emplace(kPlatformTag, description);
        }
    }

    /// Does the work of the operation, unless the call is to fail, and returns the call's result.
    template <typename Work>
    int perform(Work const& work) {
        return leave(mFailure ? *mFailure : work());
    }

    /// As perform, but does the work also when the call is to fail.
    template <typename Work>
    int performAnyhow(Work const& work) {
        int const result = work();
        return leave(mFailure.value_or(result));
    }

    /// Says whether the call is to fail.
    [[nodiscard]] bool fails() const { return mFailure.has_value(); }

private:
    KVO_MEDIA_EXPORT void enter(char const* operation, std::string const* description);

    [[nodiscard]] int leave(int result) const {
        if (mLogged) {
            mLogged->logReturn(result);
        }
        return result;
    }

    ReclaimAtCall const mReclaim;
    std::optional<int> mFailure;  ///< What the call is to return without doing its work.
    std::optional<LoggedCall> mLogged;
};

}  // namespace kvo::host
