#include <valgrind/callgrind.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Subject.h"

namespace {

constexpr char kUsage[] = R"(Usage: tvhw_bench [--counts]
Prints, a line of JSON a subject, what the library costs beside a floor that does the same job: the
nanoseconds and the heap allocations of each. With --counts, under callgrind, has the instructions
and system calls of each dumped under its number. `make bench` runs both and prints the table.
)";

constexpr int kRuns = 101;

struct HeapUse {
    std::size_t allocations = 0;
    std::size_t bytes = 0;
};
thread_local HeapUse tUse;  ///< What this thread has asked of the heap, in the libraries too.

struct Cost {
    double quarter;  ///< Nanoseconds: a quarter of the runs took less.
    double median;
    double threeQuarters;
    double allocations;
    double bytes;
};

Cost costOf(Work const& work, int calls) {
    std::vector<double> nanoseconds;
    nanoseconds.reserve(kRuns);
    HeapUse use{};
    for (int run = 0; run <= kRuns; ++run) {
        work.prepare();
        tUse = {};
        auto const start = std::chrono::steady_clock::now();
        work.run();
        std::chrono::duration<double, std::nano> const passed =
            std::chrono::steady_clock::now() - start;
        use = tUse;
        if (run > 0) {  // The first one warms up.
            nanoseconds.push_back(passed.count() / calls);
        }
    }
    std::sort(nanoseconds.begin(), nanoseconds.end());
    return {nanoseconds[kRuns / 4], nanoseconds[kRuns / 2], nanoseconds[kRuns * 3 / 4],
            static_cast<double>(use.allocations) / calls, static_cast<double>(use.bytes) / calls};
}

void print(char const* name, Cost const& cost) {
    std::printf(", \"%s\": {\"ns\": [%.2f, %.2f, %.2f], \"allocations\": %.2f, \"bytes\": %.1f}",
                name, cost.quarter, cost.median, cost.threeQuarters, cost.allocations, cost.bytes);
}

void measure(Subject const& subject) {
    std::printf(
        "{\"what\": \"%s\", \"floor\": \"%s\", \"calls\": %d, \"limit\": %.2f, "
        "\"moreAllocations\": %d, \"moreBytes\": %d",
        subject.what.c_str(), subject.floor.c_str(), subject.calls, subject.limit,
        subject.allocations, subject.bytes);
    print("measured", costOf(subject.measured, subject.calls));
    print("least", costOf(subject.least, subject.calls));
    std::printf("}\n");
}

/// Counts the second of two runs, which finds all that is bound and allocated only once.
void count(Work const& work, std::string const& name) {
    work.prepare();
    work.run();
    work.prepare();
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    work.run();
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name.c_str());
}

}  // namespace

// In place of the language runtime's, for the shared libraries as well; the other forms end here.

void* operator new(std::size_t size) {
    ++tUse.allocations;
    tUse.bytes += size;
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

int main(int argc, char** argv) {
    bool const counts = argc == 2 && std::strcmp(argv[1], "--counts") == 0;
    if (argc > 1 && !counts) {
        bool const help = std::strcmp(argv[1], "--help") == 0;
        std::fputs(kUsage, help ? stdout : stderr);
        return help ? 0 : 2;
    }
    int number = 0;
    for (auto const& make : {guardedCalls, sessions, wholeReclaim, reclaimOfOne, reclaimOfThousand,
                             reclaimOfHundredThousand}) {
        Subjects const group = make();
        if (counts) {
            CALLGRIND_START_INSTRUMENTATION;
            for (Subject const& subject : group) {
                std::string const name = std::to_string(number++);
                count(subject.measured, name + " measured");
                count(subject.least, name + " least");
            }
            CALLGRIND_STOP_INSTRUMENTATION;
        } else {
            std::for_each(group.begin(), group.end(), measure);
        }
    }
    return 0;
}
