#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// What the steps of a run did, and which of them depend on each other. A step is what a thread
/// does from one point of decision to the next.
namespace interleave {

constexpr std::size_t kMaxThreads = 8;

/// A way to go on: a thread's number times 4, and how it wakes.
using Choice = std::uint8_t;
enum class Wake : std::uint8_t { kNormal, kTimeout, kSpurious };
constexpr Choice choiceOf(std::size_t thread, Wake wake) {
    return static_cast<Choice>(thread * 4 + static_cast<std::size_t>(wake));
}
constexpr std::size_t threadOf(Choice choice) { return choice / 4U; }
constexpr Wake wakeOf(Choice choice) { return static_cast<Wake>(choice % 4U); }
using Choices = std::uint32_t;  ///< A bit each.
constexpr Choices only(Choice choice) { return Choices{1} << choice; }
constexpr Choices kWakes = 0xEEEEEEEE;  ///< All choices but the normal ones.

/// How many steps of each thread come before.
struct Clock {
    std::array<std::uint32_t, kMaxThreads> steps{};

    void join(Clock const& other) {
        for (std::size_t thread = 0; thread < kMaxThreads; ++thread) {
            steps[thread] = std::max(steps[thread], other.steps[thread]);
        }
    }
};

/// What a step did to 8 bytes of memory, or to an object that an address stands for: a bit per
/// byte.
struct Access {
    std::uintptr_t word = 0;
    std::uint8_t reads = 0;
    std::uint8_t writes = 0;
    /// References that were counted, taken or dropped, none of them the last.
    std::uint8_t counts = 0;
    bool isDropped = false;      ///< One of them was dropped.
    bool isPromoted = false;     ///< One was taken by who had none before.
    void const* code = nullptr;  ///< Of the last one.
};

/// All that a step touched.
struct Footprint {
    std::vector<Access> accesses;

    /// To be called when the step is over.
    void sort();
    /// Says whether the order of the two steps matters.
    [[nodiscard]] bool conflicts(Footprint const& other) const;
};

struct Event {
    Choice choice = 0;
    std::uint32_t step = 0;  ///< Of its thread, from 1.
    int previous = -1;       ///< Event of the thread before this one.
    int enabledBy = -1;      ///< Event that started or woke the thread.
    bool joinsAll = false;
    void const* acquired = nullptr;  ///< Lock taken first of all.
    void const* released = nullptr;  ///< Lock dropped last of all.
    /// It takes away what time may yet bring: others need its lock to wake, or it wakes for
    /// nothing.
    bool holdsUp = false;
    std::shared_ptr<Footprint> footprint = std::make_shared<Footprint>();
    Clock order;  ///< Steps that this one depends on, itself included.
};

/// Words that stand for what is no memory.
constexpr std::uintptr_t kClockWord = 1;     ///< With its deadlines.
constexpr std::uintptr_t kSpuriousWord = 2;  ///< The one spurious wake-up of a run.
constexpr std::uintptr_t kThreadsWord = 3;   ///< The numbers of threads.
constexpr std::uintptr_t waitsWord(std::size_t thread) { return 16 + thread; }

}  // namespace interleave
