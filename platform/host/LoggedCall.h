#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <utility>

#include "kvo/media/hardware/Export.h"

/// The host platform's own lines in the log: its platform calls, the calls of codecs, and mistakes.
/// They are in no journal.
namespace kvo::host {

inline constexpr int kMisuseLevel = 1;
inline constexpr int kCallLevel = 4;
inline constexpr char kPlatformTag[] = "HostPlatform";
inline constexpr char kCodecTag[] = "Codec";

/// The highest level that is printed for any tag.
KVO_MEDIA_EXPORT extern std::atomic<int> highestPrintedLevel;

/// Says whether calls may have to be logged: the one thing to ask where they mostly are not.
inline bool mayLogCalls() {
    return highestPrintedLevel.load(std::memory_order_relaxed) >= kCallLevel;
}

/// Logs a line of the host platform's own.
KVO_MEDIA_EXPORT void logLine(int level, char const* tag, std::string const& message);

/// A call to be logged under `tag`, as "operation(arguments)"; its time begins with construction.
/// Every operation may be called from any thread.
class KVO_MEDIA_EXPORT LoggedCall {
public:
    LoggedCall(char const* tag, std::string text) : mTag(tag), mText(std::move(text)) {}

    /// Logs that the call is under way.
    void logEntry() const;

    /// Logs its result and how long it took.
    void logReturn(int result) const;

private:
    char const* mTag;
    std::string mText;
    std::chrono::steady_clock::time_point mBegin = std::chrono::steady_clock::now();
};

}  // namespace kvo::host
