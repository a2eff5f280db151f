#include "scheduler/Search.h"

#include <limits>
#include <utility>

#include "scheduler/Scheduler.h"

namespace interleave {

namespace {

bool comesBefore(Event const& earlier, Clock const& clock) {
    return clock.steps.at(threadOf(earlier.choice)) >= earlier.step;
}

bool touches(Event const& event, std::uintptr_t word) {
    auto const& accesses = event.footprint->accesses;
    return std::any_of(accesses.begin(), accesses.end(),
                       [=](Access const& access) { return access.word == word; });
}

}  // namespace

void orderSteps(std::vector<Event>& events, std::size_t first,
                std::function<void(std::size_t, std::size_t)> const& onRace) {
    for (std::size_t later = first; later < events.size(); ++later) {
        Event& event = events[later];
        Clock clock;
        for (int const cause : {event.previous, event.enabledBy}) {
            if (cause >= 0) {
                clock.join(events[static_cast<std::size_t>(cause)].order);
            }
        }
        std::size_t const self = threadOf(event.choice);
        clock.steps.at(self) = event.step;
        if (event.joinsAll) {
            for (std::size_t index = 0; index < later; ++index) {
                clock.join(events[index].order);
            }
        }
        // A lock is taken only after it was dropped: the two could not have come the other way
        // round. What could is this step and the one that took the lock.
        bool isTaken = false;
        int dropped = -1;
        for (std::size_t index = later; event.acquired != nullptr && !isTaken && index-- != 0;) {
            Event const& other = events[index];
            dropped =
                dropped < 0 && other.released == event.acquired ? static_cast<int>(index) : dropped;
            isTaken = other.acquired == event.acquired;
            if (isTaken && !comesBefore(other, clock)) {
                onRace(index, later);
            }
        }
        // What lets a deadline come first may have begun long before it ended.
        for (std::size_t index = later; wakeOf(event.choice) == Wake::kTimeout && index-- != 0;) {
            if (!comesBefore(events[index], clock) && touches(events[index], kClockWord)) {
                onRace(index, later);
            }
        }
        if (dropped >= 0) {
            clock.join(events[static_cast<std::size_t>(dropped)].order);
        }
        for (std::size_t index = later; index-- != 0;) {
            Event const& other = events[index];
            if (!comesBefore(other, clock) && event.footprint->conflicts(*other.footprint)) {
                onRace(index, later);
                clock.join(other.order);
            }
        }
        event.order = clock;
    }
}

std::uint64_t hashOf(std::vector<Event> const& events) {
    std::uint64_t sum = 0;
    for (Event const& event : events) {
        std::uint64_t hash = event.choice;
        for (std::uint32_t const steps : event.order.steps) {
            hash = (hash ^ steps) * 0x9E3779B97F4A7C15U;
            hash ^= hash >> 29U;
        }
        sum += hash * hash;
    }
    return sum;
}

void Reduction::addNode(std::vector<Choice> const& options, Choices all) {
    Node node;
    node.options = all;
    if (!mNodes.empty()) {
        Node const& last = mNodes.back();
        Footprint const& done = *mEvents.at(mNodes.size() - 1).footprint;
        for (Asleep const& asleep : last.sleepers) {
            if (threadOf(asleep.choice) != threadOf(last.chosen) &&
                !asleep.footprint->conflicts(done)) {
                node.sleepers.push_back(asleep);
                node.asleep |= only(asleep.choice);
            }
        }
    }
    auto const awake = std::find_if(options.begin(), options.end(), [&](Choice option) {
        return (only(option) & node.asleep) == 0;
    });
    if (awake == options.end()) {
        mIsRedundant = true;
        return;
    }
    node.chosen = *awake;
    node.wanted = node.done = only(*awake);
    mNodes.push_back(node);
}

Choice Reduction::choose(std::vector<Choice> const& options, bool /*mayStay*/) {
    Choices all = 0;
    for (Choice const option : options) {
        all |= only(option);
    }
    if (!mIsRedundant && mDepth > mKept) {
        // A way to wake that the last step has taken away can only be tried before it.
        Node& last = mNodes[mDepth - 1];
        last.gone = last.options & ~all & ~only(last.chosen) & kWakes;
        last.wanted |= last.gone;
    }
    if (!mIsRedundant && mDepth == mNodes.size()) {
        addNode(options, all);
    }
    return mIsRedundant ? options.front() : mNodes[mDepth++].chosen;
}

/// Sees to it that from before `earlier` a run is tried in which `later` comes first.
void Reduction::want(std::size_t earlier, std::size_t later) {
    Clock first;  // Step with which each thread begins what does not depend on `earlier`.
    first.steps.fill(std::numeric_limits<std::uint32_t>::max());
    Choices initials = 0;
    Choices chosen = 0;
    for (std::size_t index = earlier + 1; index <= later; ++index) {
        Event const& event = mEvents[index];
        if (index != later && comesBefore(mEvents[earlier], event.order)) {
            continue;
        }
        bool isInitial = true;
        for (std::size_t thread = 0; thread < kMaxThreads; ++thread) {
            isInitial = isInitial && event.order.steps.at(thread) < first.steps.at(thread);
        }
        if (isInitial) {
            initials |= only(event.choice);
            bool const isPossible = (mNodes[earlier].options & only(event.choice)) != 0;
            chosen = chosen == 0 && isPossible ? only(event.choice) : chosen;
        }
        auto& begin = first.steps.at(threadOf(event.choice));
        begin = std::min(begin, event.step);
    }
    Node& node = mNodes[earlier];
    if ((initials & (node.wanted | node.asleep)) == 0) {
        node.wanted |= chosen;
    }
}

/// Says whether a thread that waits may have another way to wake before the step `earlier`, which
/// takes it away, if the step `later` comes first: since time has passed, or one that was asleep is
/// not the same.
bool Reduction::mayWake(std::size_t earlier, std::size_t later) const {
    Node const& node = mNodes[earlier];
    return (mEvents[earlier].holdsUp && touches(mEvents[later], kClockWord)) ||
           std::any_of(node.sleepers.begin(), node.sleepers.end(), [&](Asleep const& asleep) {
               return (node.gone & only(asleep.choice)) != 0 &&
                      asleep.footprint->conflicts(*mEvents[later].footprint);
           });
}

void Reduction::runEnded() {
    // Pending until the order of the later one is known.
    std::vector<std::pair<std::size_t, std::size_t>> races;
    orderSteps(mEvents, mKept,
               [&](std::size_t earlier, std::size_t later) { races.emplace_back(earlier, later); });
    for (std::size_t earlier = 0; earlier < mEvents.size(); ++earlier) {
        for (std::size_t later = std::max(earlier + 1, mKept); later < mEvents.size(); ++later) {
            if (!comesBefore(mEvents[earlier], mEvents[later].order) && mayWake(earlier, later)) {
                races.emplace_back(earlier, later);
            }
        }
    }
    for (auto const& [earlier, later] : races) {
        want(earlier, later);
    }
}

bool Reduction::advance() {
    mDepth = 0;
    mIsRedundant = false;
    for (; !mNodes.empty(); mNodes.pop_back()) {
        Node& node = mNodes.back();
        Choices const open = node.wanted & ~node.done & ~node.asleep;
        if (open != 0) {
            node.sleepers.push_back({node.chosen, mEvents[mNodes.size() - 1].footprint});
            node.chosen = static_cast<Choice>(__builtin_ctz(open));
            node.done |= only(node.chosen);
            mKept = mNodes.size() - 1;
            return true;
        }
    }
    return false;
}

Choice Bounded::choose(std::vector<Choice> const& options, bool mayStay) {
    if (options.size() == 1) {
        return options.front();
    }
    if (mDepth == mPath.size()) {
        mPath.emplace_back();
    }
    Decision& decision = mPath[mDepth++];
    bool const isSame = decision.options == 0 || decision.options == options.size();
    expect(isSame, "the same decisions make another run");
    decision.options = options.size();
    decision.isPreemption = mayStay;
    decision.preemptionsBefore = mPreemptions;
    mPreemptions += mayStay && decision.chosen != 0 ? 1 : 0;
    return options[decision.chosen];
}

bool Bounded::advance() {
    mDepth = 0;
    mPreemptions = 0;
    for (; !mPath.empty(); mPath.pop_back()) {
        Decision& last = mPath.back();
        bool const isAffordable = !last.isPreemption || last.preemptionsBefore < mBound;
        if (isAffordable && last.chosen + 1 < last.options) {
            ++last.chosen;
            return true;
        }
    }
    return false;
}

}  // namespace interleave
