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

/// Says whether a figure reaches its target.
bool isReached(Row const& row);

/// Prints the machine, and how busy it is, to standard output.
void printMachine();

/// Prints a table of figures to standard output.
void print(Rows const& rows);
