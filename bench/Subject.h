#pragma once

#include <functional>
#include <string>
#include <vector>

/// One of the two things that are compared. All of it runs on one thread.
struct Work {
    std::function<void()> run;
    std::function<void()> prepare = [] {};  ///< Before each run; not counted.
};

/// Something that users of the library pay for, beside a floor that does the same job.
struct Subject {
    std::string what;   ///< In words, as the table shows it.
    std::string floor;  ///< The same.
    Work measured;
    Work least;
    int calls;            ///< How often one run does it.
    double limit;         ///< Instructions at most, in times the floor's.
    int allocations = 0;  ///< At most, beyond the floor's, each time.
    int bytes = 0;        ///< As many of the heap at most, beyond the floor's.
};
using Subjects = std::vector<Subject>;

/// Keeps a value that nobody uses from being optimised away.
template <typename T>
void keep(T const& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

/// Does `action` so often in one run.
template <typename Action>
auto repeated(int times, Action action) {
    return [times, action] {
        for (int turn = 0; turn < times; ++turn) {
            action();
        }
    };
}

/// Calls of a codec through the guard.
Subjects guardedCalls();

/// Making a wrapper, and configuring and releasing it.
Subjects sessions();

/// A reclaim from the manager's call to its answer.
Subjects wholeReclaim();

/// How a reclaim finds its owner among so many clients, which are open only meanwhile.
Subjects reclaimOfOne();
Subjects reclaimOfThousand();
Subjects reclaimOfHundredThousand();
