#include "kvo_media_log.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>
#include <string_view>

#include "host/Forever.h"
#include "host/HostPlatform.h"
#include "host/PlatformCall.h"
#include "host/Settings.h"

namespace kvo::host {

namespace {

constexpr char kPriorities[] = "EWIDV";  ///< Of the levels from 0 on.

int levelOf(std::string_view tag, LogLevels const& levels) {
    auto const level = levels.ofTag.find(tag);
    return level == levels.ofTag.end() ? levels.ofOtherTags : level->second;
}

int highest(LogLevels const& levels) {
    int level = levels.ofOtherTags;
    for (auto const& entry : levels.ofTag) {
        level = std::max(level, entry.second);
    }
    return level;
}

struct State {
    std::mutex mutex;
    LogLevels levels = settings().logLevels;
};

void setLevels(LogLevels const& levels) {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    forever<State>().levels = levels;
    highestPrintedLevel.store(highest(levels), std::memory_order_relaxed);
}

OnReset const gOnReset([] { setLevels(settings().logLevels); });

bool isPrinted(int level, char const* tag) {
    if (level > highestPrintedLevel.load(std::memory_order_relaxed)) {
        return false;
    }
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    return level <= levelOf(tag, forever<State>().levels);
}

__attribute__((format(printf, 1, 0))) std::string format(char const* text, std::va_list arguments) {
    char* printed = nullptr;
    if (::vasprintf(&printed, text, arguments) < 0) {
        return text;
    }
    std::string message = printed;
    std::free(printed);
    return message;
}

/// What stands before the message: local time, process, thread, priority and tag.
std::string lineStart(int level, char const* tag) {
    std::timespec now{};
    static_cast<void>(std::timespec_get(&now, TIME_UTC));
    std::tm local{};
    ::localtime_r(&now.tv_sec, &local);
    std::array<char, 64> start{};
    std::size_t const length = std::strftime(start.data(), start.size(), "%m-%d %H:%M:%S", &local);
    auto const priority = static_cast<std::size_t>(std::clamp(level, 0, kCallLevel));
    static_cast<void>(std::snprintf(start.data() + length, start.size() - length,
                                    ".%03ld %5d %5d %c ", now.tv_nsec / 1000000L, ::getpid(),
                                    ::gettid(), kPriorities[priority]));
    return std::string(start.data()) + tag + ": ";
}

/// Writes a line at once, so that those of several threads and processes do not mix.
void print(int level, char const* tag, std::string message) {
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::string const line = lineStart(level, tag) + message + "\n";
    std::string_view rest = line;
    while (!rest.empty()) {
        ssize_t const written = ::write(settings().logOutput, rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return;  // There is nowhere to complain.
        }
    }
}

}  // namespace

std::atomic<int> highestPrintedLevel{highest(settings().logLevels)};

void setLogLevel(int level) { setLevels({level, {}}); }

void logLine(int level, char const* tag, std::string const& message) {
    if (isPrinted(level, tag)) {
        print(level, tag, message);
    }
}

void LoggedCall::logEntry() const { logLine(kCallLevel, mTag, mText + " entered"); }

void LoggedCall::logReturn(int result) const {
    using std::chrono::microseconds;
    if (isPrinted(kCallLevel, mTag)) {
        auto const taken =
            std::chrono::duration_cast<microseconds>(std::chrono::steady_clock::now() - mBegin);
        print(kCallLevel, mTag,
              mText + " = " + std::to_string(result) + " in " + std::to_string(taken.count()) +
                  " us");
    }
}

}  // namespace kvo::host

extern "C" KVO_MEDIA_EXPORT void kvo_media_log_printf(int level, char const* tag, char const* file,
                                                      char const* function, int line,
                                                      char const* text, ...) {
    bool const printed = kvo::host::isPrinted(level, tag);
    bool const recorded = kvo::host::isRecording();
    if (!printed && !recorded) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, text);
    std::string const functionAndMessage =
        std::string(function) + ": " + kvo::host::format(text, arguments);
    va_end(arguments);
    if (recorded) {
        kvo::host::recordLogLine(std::to_string(level) + " " + tag + " " + functionAndMessage, file,
                                 line);
    }
    if (printed) {
        kvo::host::print(level, tag,
                         std::string(file) + ":" + std::to_string(line) + " " + functionAndMessage);
    }
}
