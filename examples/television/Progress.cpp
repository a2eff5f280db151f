#include "Progress.h"

#include <unistd.h>

#include <iostream>
#include <utility>

#include "Libav.h"

namespace kvo::demo {

namespace {

constexpr std::chrono::milliseconds kRedrawEvery{100};
constexpr std::chrono::seconds kPrintEvery{5};

constexpr char kBeginOfLine[] = "\r\033[K";

}  // namespace

Progress::Progress() : mIsTerminal(isatty(STDOUT_FILENO) == 1) {}

Progress::~Progress() {
    if (mLineIsOpen) {
        std::cout << std::endl;
    }
}

void Progress::begin(std::string step) {
    mStep = std::move(step);
    mBegan = mPrinted = Clock::now();
    if (mIsTerminal) {
        std::cout << kBeginOfLine << mStep << " ..." << std::flush;
        mLineIsOpen = true;
    }
}

void Progress::update(unsigned int pictures, unsigned int total) {
    Clock::time_point const now = Clock::now();
    if (now - mPrinted < (mIsTerminal ? Clock::duration(kRedrawEvery) : kPrintEvery)) {
        return;
    }
    mPrinted = now;
    std::string text = mStep + ": " + std::to_string(pictures);
    text += total == 0 ? "" : " of " + std::to_string(total);
    text += " pictures";
    if (mIsTerminal) {
        std::cout << kBeginOfLine << text << std::flush;
    } else {
        std::cout << text << std::endl;
    }
}

void Progress::end(std::string const& outcome) {
    std::cout << (mLineIsOpen ? kBeginOfLine : "") << mStep << ": " << outcome << std::endl;
    mLineIsOpen = false;
    requirePrinted();
}

double Progress::seconds() const {
    return std::chrono::duration<double>(Clock::now() - mBegan).count();
}

void requirePrinted() { require(!std::cout.flush().fail(), "cannot write to standard output"); }

}  // namespace kvo::demo
