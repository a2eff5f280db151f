#include "Report.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "host/HostPlatform.h"

namespace {

// So short that most repetitions are not interrupted, however busy the machine is.
constexpr double kSecondsPerRepetition = 0.002;
constexpr int kRepetitions = 251;

/// Of a group that misses a target. Odd, so that there is a median.
constexpr std::size_t kRuns = 9;

/// Keeps the time of every repetition.
class Samples : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(Context const& /*context*/) override { return true; }

    void ReportRuns(std::vector<Run> const& runs) override {
        for (Run const& run : runs) {
            if (run.run_type == Run::RT_Iteration) {
                bool const isProcessorTime = run.run_name.time_type.empty();
                nanoseconds[run.run_name.function_name].push_back(
                    isProcessorTime ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime());
            }
        }
    }

    std::map<std::string, std::vector<double>> nanoseconds;
};

double median(std::vector<double> values) {
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::string processorModel() {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.rfind("model name", 0) == 0) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown processor";
}

std::string compiler() {
#ifdef __clang__
    return __VERSION__;
#else
    return "GCC " __VERSION__;
#endif
}

void printMachine() {
    double load = 0;
    getloadavg(&load, 1);
    std::printf("%s, %d cores, load %.1f, %s\n", processorModel().c_str(),
                benchmark::CPUInfo::Get().num_cpus, load, compiler().c_str());
}

bool isReached(Row const& row) { return row.measured <= row.least * row.target; }

bool costsLess(Row const& one, Row const& other) {
    return one.measured * other.least < other.measured * one.least;
}

/// Measures a group of figures: once if all reach their targets, else several times, and returns
/// each figure as in the run with its median ratio.
Rows settled(std::function<Rows()> const& measure) {
    std::vector<Rows> runs{measure()};
    if (std::all_of(runs[0].begin(), runs[0].end(), isReached)) {
        return runs[0];
    }
    while (runs.size() < kRuns) {
        std::fprintf(stderr, "A target was missed. Once more, run %zu of %zu.\n", runs.size() + 1,
                     kRuns);
        runs.push_back(measure());
    }
    Rows medians;
    for (std::size_t figure = 0; figure < runs[0].size(); ++figure) {
        Rows same;
        for (Rows const& run : runs) {
            same.push_back(run[figure]);
        }
        std::nth_element(same.begin(), same.begin() + kRuns / 2, same.end(), costsLess);
        medians.push_back(same[kRuns / 2]);
    }
    return medians;
}

void print(Rows const& rows) {
    std::printf("%-34s %-32s %8s %8s %-11s %6s %6s\n", "figure", "floor", "measured", "least", "",
                "ratio", "target");
    for (Row const& row : rows) {
        std::printf("%-34s %-32s %8.1f %8.1f %-11s ", row.figure.c_str(), row.floor.c_str(),
                    row.measured, row.least, row.unit.c_str());
        if (row.least == 0) {
            std::printf("%6s %6s", "-", "0");
        } else {
            std::printf("%6.2f %6.2f", row.measured / row.least, row.target);
        }
        std::printf(" %s\n", isReached(row) ? "ok" : "missed");
    }
}

}  // namespace

void measureCalls(std::string const& name, std::function<void(benchmark::State&)> const& code) {
    benchmark::RegisterBenchmark(name.c_str(), code)
        ->MinTime(kSecondsPerRepetition)
        ->Repetitions(kRepetitions);
}

void measureEvents(std::string const& name, int events, std::function<double()> const& seconds) {
    auto const once = [seconds](benchmark::State& state) {
        for ([[maybe_unused]] auto const step : state) {
            state.SetIterationTime(seconds());
        }
    };
    benchmark::RegisterBenchmark(name.c_str(), once)
        ->UseManualTime()
        ->Iterations(1)
        ->Repetitions(events);
}

std::map<std::string, double> runMedians() {
    Samples samples;
    benchmark::RunSpecifiedBenchmarks(&samples);
    benchmark::ClearRegisteredBenchmarks();
    std::map<std::string, double> medians;
    for (auto const& [name, values] : samples.nanoseconds) {
        medians[name] = median(values);
    }
    return medians;
}

int report(int argc, char** argv, char const* usage,
           std::vector<std::function<Rows()>> const& groups) {
    if (argc > 1) {
        if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
            std::fputs(usage, stdout);
            return 0;
        }
        std::fprintf(stderr, "%s: unexpected argument %s; see --help\n", argv[0], argv[1]);
        return 2;
    }
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    char* options[] = {argv[0], interleaving, nullptr};
    int optionCount = 2;
    benchmark::Initialize(&optionCount, options);
    kvo::host::setLogLevel(-1);

    // Locks and counts are cheaper in a process that never had a second thread; codecs' have many.
    std::thread([] {}).join();

    printMachine();
    Rows all;
    for (auto const& group : groups) {
        Rows const rows = settled(group);
        all.insert(all.end(), rows.begin(), rows.end());
    }
    print(all);
    return std::all_of(all.begin(), all.end(), isReached) ? 0 : 1;
}
