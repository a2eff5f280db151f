#pragma once

#include <chrono>
#include <string>

namespace kvo::media::hardware::example {

/// The line on standard output that tells how far a program is: redrawn on a terminal, elsewhere
/// printed now and then. For one thread.
class ProgressLine {
public:
    ProgressLine();
    ProgressLine(ProgressLine const&) = delete;
    ProgressLine& operator=(ProgressLine const&) = delete;
    /// Ends a line that is still being redrawn.
    ~ProgressLine();

    /// Begins a step of the program.
    void begin(std::string step);

    /// Tells how far the step is.
    void update(std::string const& text);

    /// Ends the step with what came of it. Throws Failure when standard output is full or
    /// closed.
    void end(std::string const& outcome);

    /// Returns the step that was begun last.
    [[nodiscard]] std::string const& step() const { return mStep; }

    /// Returns the seconds since begin().
    [[nodiscard]] double seconds() const;

private:
    using Clock = std::chrono::steady_clock;

    void redraw(std::string const& text);

    bool const mIsTerminal;
    bool mLineIsOpen = false;
    std::string mStep;
    Clock::time_point mBegan;
    Clock::time_point mPrinted;
};

/// Throws Failure unless all that was printed on standard output has arrived there.
void requirePrinted();

}  // namespace kvo::media::hardware::example
