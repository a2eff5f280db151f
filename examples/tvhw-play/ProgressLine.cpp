#include "ProgressLine.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "Libav.h"
#include "fmt/core.h"

namespace kvo::media::hardware::example {

namespace {

constexpr std::chrono::milliseconds kRedrawEvery{100};
constexpr std::chrono::seconds kPrintEvery{5};

constexpr char kBeginOfLine[] = "\r\033[K";

}  // namespace

ProgressLine::ProgressLine() : mIsTerminal(isatty(STDOUT_FILENO) == 1) {}

ProgressLine::~ProgressLine() {
    if (mLineIsOpen) {
        std::putchar('\n');
    }
}

void ProgressLine::begin(std::string step) {
    mStep = std::move(step);
    mBegan = mPrinted = Clock::now();
    redraw(mStep + " ...");
}

void ProgressLine::update(std::string const& text) {
    Clock::time_point const now = Clock::now();
    if (now - mPrinted < (mIsTerminal ? Clock::duration(kRedrawEvery) : kPrintEvery)) {
        return;
    }
    mPrinted = now;
    if (mIsTerminal) {
        redraw(mStep + ": " + text);
    } else {
        fmt::print("{}: {}\n", mStep, text);
        std::fflush(stdout);
    }
}

void ProgressLine::redraw(std::string const& text) {
    if (mIsTerminal) {
        fmt::print("{}{}", kBeginOfLine, text);
        std::fflush(stdout);
        mLineIsOpen = true;
    }
}

void ProgressLine::end(std::string const& outcome) {
    fmt::print("{}{}: {}\n", mLineIsOpen ? kBeginOfLine : "", mStep, outcome);
    mLineIsOpen = false;
    requirePrinted();
}

double ProgressLine::seconds() const {
    return std::chrono::duration<double>(Clock::now() - mBegan).count();
}

void requirePrinted() {
    require(std::fflush(stdout) == 0 && std::ferror(stdout) == 0,
            "cannot write to standard output");
}

}  // namespace kvo::media::hardware::example
