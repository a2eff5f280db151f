#pragma once

#include <chrono>
#include <string>

namespace kvo::media::hardware::demo {

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

    /// Ends the step with what came of it. Throws DemoFailure when standard output is full or
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

/// Throws DemoFailure unless all that was printed on standard output has arrived there.
void requirePrinted();

}  // namespace kvo::media::hardware::demo
