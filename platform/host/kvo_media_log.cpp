#include "kvo_media_log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/HostPlatform.h"
#include "host/PlatformCall.h"

namespace {

constexpr int kDefaultLevel = 1;

int levelOfEnvironment() {
    char const* const value = std::getenv("KVO_MEDIA_LOG_LEVEL");
    if (value == nullptr) {
        return kDefaultLevel;
    }
    char* end = nullptr;
    long const level = std::strtol(value, &end, 10);
    return end == value ? kDefaultLevel : static_cast<int>(level);
}

std::atomic<int>& printedLevel() {
    static std::atomic<int> level{levelOfEnvironment()};
    return level;
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

[[maybe_unused]] bool const gResets = [] {
    kvo::host::onReset([] { printedLevel() = levelOfEnvironment(); });
    return true;
}();

}  // namespace

namespace kvo::host {

void setLogLevel(int level) { printedLevel() = level; }

}  // namespace kvo::host

extern "C" KVO_MEDIA_EXPORT void kvo_media_log_printf(int level, char const* tag, char const* file,
                                                      char const* function, int line,
                                                      char const* text, ...) {
    bool const printed = level <= printedLevel().load(std::memory_order_relaxed);
    bool const recorded = kvo::host::isRecording();
    if (!printed && !recorded) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, text);
    std::string const message = format(text, arguments);
    va_end(arguments);

    std::string const levelAndTag = std::to_string(level) + " " + tag + " ";
    std::string const functionAndMessage = std::string(function) + ": " + message;
    if (recorded) {
        kvo::host::recordLogLine(levelAndTag + functionAndMessage, file, line);
    }
    if (printed) {
        // One write for the whole line, so that lines of several threads do not mix.
        std::string const whole =
            levelAndTag + file + ":" + std::to_string(line) + " " + functionAndMessage + "\n";
        static_cast<void>(std::fwrite(whole.data(), 1, whole.size(), stderr));
    }
}
