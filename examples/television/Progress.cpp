#include "Progress.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "Libav.h"
#include "fmt/core.h"

namespace kvo::media::hardware::demo {

namespace {

constexpr std::chrono::milliseconds kRedrawEvery{100};
constexpr std::chrono::seconds kPrintEvery{5};

constexpr char kBeginOfLine[] = "\r\033[K";

}  // namespace

Progress::Progress() : mIsTerminal(isatty(STDOUT_FILENO) == 1) {}

Progress::~Progress() {
    if (mLineIsOpen) {
        std::putchar('\n');
    }
}

void Progress::begin(std::string step) {
    mStep = std::move(step);
    mBegan = mPrinted = Clock::now();
    redraw(mStep + " ...");
}

void Progress::update(unsigned int pictures, unsigned int total) {
    Clock::time_point const now = Clock::now();
    if (now - mPrinted < (mIsTerminal ? Clock::duration(kRedrawEvery) : kPrintEvery)) {
        return;
    }
    mPrinted = now;
    std::string const of = total == 0 ? "" : fmt::format(" of {}", total);
    std::string const text = fmt::format("{}: {}{} pictures", mStep, pictures, of);
    if (mIsTerminal) {
        redraw(text);
    } else {
        fmt::print("{}\n", text);
        std::fflush(stdout);
    }
}

void Progress::redraw(std::string const& text) {
    if (mIsTerminal) {
        fmt::print("{}{}", kBeginOfLine, text);
        std::fflush(stdout);
        mLineIsOpen = true;
    }
}

void Progress::end(std::string const& outcome) {
    fmt::print("{}{}: {}\n", mLineIsOpen ? kBeginOfLine : "", mStep, outcome);
    mLineIsOpen = false;
    requirePrinted();
}

double Progress::seconds() const {
    return std::chrono::duration<double>(Clock::now() - mBegan).count();
}

void requirePrinted() {
    require(std::fflush(stdout) == 0 && std::ferror(stdout) == 0,
            "cannot write to standard output");
}

}  // namespace kvo::media::hardware::demo
