#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

/// A figure beside its floor: what was `measured` and the `least` that it could be, in `unit`. The
/// target is reached when the one is at most `target` times the other.
struct Row {
    std::string figure;
    std::string floor;
    std::string unit;
    double measured;
    double least;
    double target;
};
using Rows = std::vector<Row>;

/// Registers a benchmark of short calls on one thread, measured in its processor time.
void measureCalls(std::string const& name, std::function<void(benchmark::State&)> const& code);

/// Registers a benchmark of something that times itself: `seconds` is called `events` times.
void measureEvents(std::string const& name, int events, std::function<double()> const& seconds);

/// Runs the benchmarks registered since the last call, their repetitions in random order, and
/// returns the median times by name, in nanoseconds.
std::map<std::string, double> runMedians();

/// Measures groups of figures and prints the machine and a table of them all: the whole of a
/// program, whose arguments may only ask for its `usage`. A group of which a figure misses its
/// target is measured several times, and its medians count. Returns the exit status: 0 when all
/// targets are reached, 1 when not, 2 for other arguments.
int report(int argc, char** argv, char const* usage,
           std::vector<std::function<Rows()>> const& groups);
