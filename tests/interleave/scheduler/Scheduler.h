#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Runs the threads of a scenario one at a time, on a single thread of the system, and decides at
/// every point which of them goes on. The same decisions make the same run.
///
/// It knows nothing of what is run. A program links it together with functions of its own in place
/// of those that the libraries under test call. The loader takes the locks, condition variables,
/// steady clock and heap of these libraries from here (see also FreedMemory.cpp).
/// Each function that a scenario wants to see interrupted calls point().
///
/// A run is broken when a thread breaks a rule, when none can go on, or when memory is used that
/// was freed. The first broken run ends the process, with the decisions that replay it.
namespace interleave {

using Nanoseconds = std::int64_t;

/// What is run in every order.
struct Scenario {
    std::string name;
    std::function<void()> body;      ///< Of the first thread, which starts the others.
    std::vector<std::string> facts;  ///< What must have been seen() in one of the orders.
};

/// Runs `scenario` in every order, but for orders of steps that do not depend on each other. The
/// scenario and the libraries under test must be instrumented (CMakeLists.txt). With a `bound`: in
/// every order with at most so many preemptions, depth first. To go on with another thread is a
/// preemption when the running one could have gone on. A deadline that comes first, or a spurious
/// wake-up, one a run, is a way to go on with the thread that waits. Returns how many these were;
/// too many are a broken run, too.
std::uint64_t explore(Scenario const& scenario, std::optional<unsigned int> bound = {});

/// Runs the one schedule that these decisions make and prints what each thread does.
void replay(Scenario const& scenario, std::string const& decisions);

/// Makes at most `limit` runs within the bound, and `limit` at random: these must come to no order
/// and to no outcome that explore() did not, unless it finds too many orders. Prints how many it
/// found. Returns the number of runs that were compared.
std::uint64_t compare(Scenario const& scenario, unsigned int bound, std::uint64_t limit);

// --- For the threads of a scenario.

/// Starts a thread. It runs when it is chosen.
void start(std::string name, std::function<void()> body);

/// Waits for all threads that were started.
void joinAll();

/// Lets the scheduler decide who goes on. What the thread is about to do goes to the trace.
__attribute__((format(printf, 1, 2))) void point(char const* format, ...);

/// Waits until `isReady`, which must change nothing, returns true, as it must from then on.
void waitUntil(std::function<bool()> isReady);

/// Waits until the clock has reached `time`.
void sleepUntil(Nanoseconds time);

/// The clock of the run. It stands still but for deadlines, each of which it reaches in order.
Nanoseconds now();

/// The clock as the running thread last read it.
Nanoseconds lastNow();

/// Number of the running thread, in the order of starting.
std::size_t threadNumber();

/// Says how many locks the running thread holds.
std::size_t locksHeld();

/// A wait for a signal.
struct SignalWait {
    Nanoseconds begin;  ///< When the thread last read the clock.
    Nanoseconds deadline;
    bool timedOut;  ///< It ended without any signal.
};

/// All waits of the running thread.
std::vector<SignalWait> const& waits();
/// Says whether a thread has any.
bool hasWaited(std::size_t thread);

/// Breaks the run unless `isTrue`.
__attribute__((format(printf, 2, 3))) void expect(bool isTrue, char const* format, ...);

/// Notes that a run has come to a fact of its scenario.
void seen(char const* fact);

}  // namespace interleave
