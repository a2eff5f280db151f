#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "scheduler/Trace.h"

namespace interleave {

/// Finds out what the steps from `first` on depend on, and calls `onRace` for each pair, the
/// earlier one first, that could have come the other way round with nothing between.
void orderSteps(std::vector<Event>& events, std::size_t first,
                std::function<void(std::size_t, std::size_t)> const& onRace);

/// The same number for runs that differ only in the order of independent steps.
std::uint64_t hashOf(std::vector<Event> const& events);

/// Decides who goes on. The first of the options is to go on with the running thread, if it can.
class Search {
public:
    virtual ~Search() = default;

    /// The steps before this one are those of the run before.
    [[nodiscard]] virtual std::size_t kept() const { return 0; }
    /// Says whether the rest of this run need not be noted: it was seen in another order.
    [[nodiscard]] virtual bool isRedundant() const { return false; }
    /// `mayStay` says that the first option is no more than to go on.
    virtual Choice choose(std::vector<Choice> const& options, bool mayStay) = 0;
    /// The run is over: finds out the order of its steps, where the search needs it.
    virtual void runEnded() {}
    /// Prepares the next run. Returns false after the last.
    virtual bool advance() { return true; }
};

/// Every run but for the order of independent steps: dynamic partial-order reduction, by source
/// sets and sleep sets.
class Reduction final : public Search {
public:
    /// `events` are those of the run.
    explicit Reduction(std::vector<Event>& events) : mEvents(events) {}
    [[nodiscard]] std::size_t kept() const override { return mKept; }
    [[nodiscard]] bool isRedundant() const override { return mIsRedundant; }
    Choice choose(std::vector<Choice> const& options, bool mayStay) override;
    void runEnded() override;
    bool advance() override;

private:
    struct Asleep {
        Choice choice;
        std::shared_ptr<Footprint> footprint;
    };
    /// A point of decision.
    struct Node {
        Choices options = 0;
        Choices wanted = 0;
        Choices done = 0;
        Choices asleep = 0;
        Choices gone = 0;  ///< Ways to wake that the chosen step takes away.
        Choice chosen = 0;
        std::vector<Asleep> sleepers;  ///< What was explored from here or before, and still holds.
    };

    void addNode(std::vector<Choice> const& options, Choices all);
    [[nodiscard]] bool mayWake(std::size_t earlier, std::size_t later) const;
    void want(std::size_t earlier, std::size_t later);

    std::vector<Event>& mEvents;
    std::vector<Node> mNodes;
    std::size_t mKept = 0;
    std::size_t mDepth = 0;
    bool mIsRedundant = false;
};

/// Every run with at most so many preemptions, depth first.
class Bounded final : public Search {
public:
    explicit Bounded(unsigned int bound) : mBound(bound) {}
    Choice choose(std::vector<Choice> const& options, bool mayStay) override;
    bool advance() override;

private:
    struct Decision {
        std::size_t chosen = 0;
        std::size_t options = 0;
        bool isPreemption = false;  ///< When not the first option is chosen.
        unsigned int preemptionsBefore = 0;
    };
    unsigned int mBound;
    std::vector<Decision> mPath;
    std::size_t mDepth = 0;
    unsigned int mPreemptions = 0;
};

/// Runs without end, of which a function makes the choices.
class Chosen final : public Search {
public:
    using Function = std::function<Choice(std::vector<Choice> const& options)>;
    explicit Chosen(Function choose) : mChoose(std::move(choose)) {}
    Choice choose(std::vector<Choice> const& options, bool /*mayStay*/) override {
        return mChoose(options);
    }

private:
    Function mChoose;
};

}  // namespace interleave
