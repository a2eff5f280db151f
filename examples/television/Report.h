#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "kvo/media/hardware/Status.h"

namespace kvo::demo {

/// The line on standard output that tells how far the demo is: redrawn on a terminal, elsewhere
/// printed now and then. For one thread.
class Progress {
public:
    Progress();
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;
    /// Ends a line that is still being redrawn.
    ~Progress();

    /// Begins a step of the demo.
    void begin(std::string step);

    /// Tells how many pictures the step has behind it, of `total`; 0 if that is unknown.
    void update(unsigned int pictures, unsigned int total);

    /// Ends the step with what came of it.
    void end(std::string const& outcome);

    /// Returns the step that was begun last.
    [[nodiscard]] std::string const& step() const { return mStep; }

    /// Returns the seconds since begin().
    [[nodiscard]] double seconds() const;

private:
    using Clock = std::chrono::steady_clock;

    bool const mIsTerminal;
    bool mLineIsOpen = false;
    std::string mStep;
    Clock::time_point mBegan;
    Clock::time_point mPrinted;
};

/// What the calls of one player answered, for the summary.
class Answers {
public:
    /// Notes the answer. Throws DemoFailure unless it is `expected`.
    void require(std::string const& call, media::hardware::Status answer, int expected = 0);

    /// Returns them all, as "configure 0, release 0".
    [[nodiscard]] std::string const& text() const { return mText; }

private:
    std::string mText;
};

/// What the closing table says of one player.
struct SummaryRow {
    std::string act;
    std::string pictures;
    std::string size;
    std::string core;
    std::string port;
    std::string statuses;
    std::string time;
};

struct WrittenFile {
    std::string path;
    std::string content;  ///< What there is to see in it.
};

/// Prints the table and, below it, the files.
void printSummary(std::vector<SummaryRow> const& rows, std::vector<WrittenFile> const& files);

}  // namespace kvo::demo
