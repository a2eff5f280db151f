#include "kvo_media_log.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "host/CallLog.h"
#include "host/HostPlatform.h"
#include "host/PlatformCall.h"

namespace kvo::host {

namespace {

constexpr char kLevelVariable[] = "KVO_MEDIA_LOG_LEVEL";
constexpr char kFileVariable[] = "KVO_MEDIA_LOG_FILE";
constexpr char kPriorities[] = "EWIDV";  ///< Of the levels from 0 on.
constexpr int kLowestLevel = -1;
constexpr int kDefaultLevel = 1;

/// Up to which level lines are printed.
struct Levels {
    int ofOtherTags = kDefaultLevel;
    std::map<std::string, int, std::less<>> ofTag;

    [[nodiscard]] int of(std::string_view tag) const {
        auto const level = ofTag.find(tag);
        return level == ofTag.end() ? ofOtherTags : level->second;
    }

    [[nodiscard]] int highest() const {
        int level = ofOtherTags;
        for (auto const& entry : ofTag) {
            level = std::max(level, entry.second);
        }
        return level;
    }
};

/// Reads "LEVEL" or "TAG:LEVEL" into `levels`; "*" stands for all other tags.
bool readLevel(std::string_view text, Levels& levels) {
    auto const colon = text.rfind(':');
    std::string_view const tag = colon == std::string_view::npos ? "*" : text.substr(0, colon);
    std::string_view const number = text.substr(colon == std::string_view::npos ? 0 : colon + 1);
    int level = 0;
    auto const [end, error] = std::from_chars(number.data(), number.data() + number.size(), level);
    if (error != std::errc() || end != number.data() + number.size() || tag.empty() ||
        level < kLowestLevel || level > kCallLevel) {
        return false;
    }
    if (tag == "*") {
        levels.ofOtherTags = level;
    } else {
        levels.ofTag[std::string(tag)] = level;
    }
    return true;
}

std::optional<Levels> readLevels(std::string_view text) {
    Levels levels;
    for (;;) {
        auto const comma = text.find(',');
        if (!readLevel(text.substr(0, comma), levels)) {
            return std::nullopt;
        }
        if (comma == std::string_view::npos) {
            return levels;
        }
        text.remove_prefix(comma + 1);
    }
}

/// Ends the process over the value of an environment variable.
[[noreturn]] void refuse(char const* variable, char const* value, char const* reason) {
    static_cast<void>(std::fprintf(stderr, "%s=%s: %s\n", variable, value, reason));
    std::_Exit(2);
}

/// Returns the value of an environment variable, or null when it is not set or empty.
char const* setting(char const* variable) {
    char const* const value = std::getenv(variable);
    return value == nullptr || *value == '\0' ? nullptr : value;
}

Levels levelsOfEnvironment() {
    char const* const value = setting(kLevelVariable);
    if (value == nullptr) {
        return {};
    }
    auto const levels = readLevels(value);
    if (!levels) {
        refuse(kLevelVariable, value,
               "must be a level from -1 to 4, or a list such as VideoClient:3,*:1");
    }
    return *levels;
}

int outputOfEnvironment() {
    char const* const path = setting(kFileVariable);
    if (path == nullptr) {
        return STDERR_FILENO;
    }
    int const output = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (output < 0) {
        refuse(kFileVariable, path, std::strerror(errno));
    }
    return output;
}

/// Never destroyed: lines come until the process has ended.
struct State {
    std::mutex mutex;
    Levels levels;
    int const output = outputOfEnvironment();
};

State& state() {
    static State& theState = *new State;
    return theState;
}

void setLevels(Levels const& levels) {
    std::lock_guard<std::mutex> const lock(state().mutex);
    state().levels = levels;
    highestPrintedLevel.store(levels.highest(), std::memory_order_relaxed);
}

[[maybe_unused]] bool const gStarts = [] {
    setLevels(levelsOfEnvironment());
    onReset([] { setLevels(levelsOfEnvironment()); });
    return true;
}();

bool isPrinted(int level, char const* tag) {
    if (level > highestPrintedLevel.load(std::memory_order_relaxed)) {
        return false;
    }
    std::lock_guard<std::mutex> const lock(state().mutex);
    return level <= state().levels.of(tag);
}

__attribute__((format(printf, 1, 0))) std::string format(char const* text, std::va_list arguments) {
    std::va_list measured;
    va_copy(measured, arguments);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not follow va_copy.
    int const length = std::vsnprintf(nullptr, 0, text, measured);
    va_end(measured);
    if (length < 0) {
        return text;
    }
    std::string message(static_cast<std::size_t>(length), '\0');
    static_cast<void>(std::vsnprintf(message.data(), message.size() + 1, text, arguments));
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
        ssize_t const written = ::write(state().output, rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return;  // There is nowhere to complain.
        }
    }
}

}  // namespace

std::atomic<int> highestPrintedLevel{kDefaultLevel};

void setLogLevel(int level) { setLevels({level, {}}); }

void LoggedCall::logEntry() const {
    if (isPrinted(kCallLevel, mTag)) {
        print(kCallLevel, mTag, mText + " entered");
    }
}

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
