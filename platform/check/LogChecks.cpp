#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "Check.h"
#include "kvo_media_log.h"

namespace kvo::check {

namespace {

constexpr char kTag[] = "PlatformCheckTag";
constexpr char kFile[] = "check/PlatformCheckFile.cpp";
constexpr char kFunction[] = "platformCheckFunction";

void logLine(int level) {
    InCall const in("kvo_media_log_printf");
    kvo_media_log_printf(level, kTag, kFile, kFunction, 4712, "core=0x%x of %s, %d/%u (%d%%)",
                         0xBEEF, "the check", -5, 3000000000U, 42);
}

constexpr char kMessage[] = "core=0xbeef of the check, -5/3000000000 (42%)";

/// What a process prints to standard output and error while the object lives.
class Printed {
public:
    Printed() : mFile(memfd_create("printed", 0)) {
        for (int const stream : {STDOUT_FILENO, STDERR_FILENO}) {
            mOwn[stream - 1] = dup(stream);
            dup2(mFile, stream);
        }
    }
    Printed(Printed const&) = delete;
    Printed& operator=(Printed const&) = delete;
    ~Printed() { close(mFile); }

    std::string end() {
        static_cast<void>(std::fflush(nullptr));
        for (int const stream : {STDOUT_FILENO, STDERR_FILENO}) {
            dup2(mOwn[stream - 1], stream);
            close(mOwn[stream - 1]);
        }
        std::string text(static_cast<std::size_t>(lseek(mFile, 0, SEEK_END)), '\0');
        ssize_t const count = pread(mFile, text.data(), text.size(), 0);
        text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return text;
    }

private:
    int mFile;
    int mOwn[2]{};
};

Outcome printsArguments() {
    Printed printed;
    for (int level = 0; level <= 3; ++level) {
        logLine(level);
    }
    std::string const text = printed.end();
    if (text.find(kMessage) == std::string::npos) {
        bool const isSomething = text.find(kTag) != std::string::npos ||
                                 text.find(kFile) != std::string::npos ||
                                 text.find(kFunction) != std::string::npos;
        return isSomething ? outcome(false, text)
                           : skipped("the log prints nothing of it to standard output or error");
    }
    auto const begin = text.rfind('\n', text.find(kMessage)) + 1;
    std::string const line = text.substr(begin, text.find('\n', begin) - begin);
    auto const tag = line.find(kTag);
    auto const isBehindTag = [&](char const* what) {
        auto const place = line.find(what);
        return place == std::string::npos || tag == std::string::npos || place > tag;
    };
    return outcome(isBehindTag(kFile) && isBehindTag(kFunction), line);
}

Outcome doesNotBlock() {
    auto const start = std::chrono::steady_clock::now();
    Printed printed;
    std::array<std::thread, 4> threads;
    for (auto& thread : threads) {
        thread = std::thread([] {
            for (int line = 0; line < 25; ++line) {
                logLine(line % 4);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    auto const size = static_cast<long long>(printed.end().size());
    auto const took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    return outcome(took < std::chrono::seconds(5),
                   values({{"ms", took.count()}, {"bytes printed", size}}));
}

}  // namespace

Checks logChecks() {
    return {
        {Level::kMust, "the-log-prints-its-arguments",
         "kvo_media_log_printf with level 0 to 3, a tag, file, function, line 4712 and five values",
         "a line with the message whole, and the tag, if it is there, before file and function",
         printsArguments},
        {Level::kMust, "the-log-does-not-block",
         "kvo_media_log_printf, 100 lines from four threads at once", "all taken within 5 s",
         doesNotBlock},
    };
}

}  // namespace kvo::check
