#include "Report.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

// So short that most repetitions are not interrupted, however busy the machine is.
constexpr double kSecondsPerRepetition = 0.002;
constexpr int kRepetitions = 251;

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

void printMachine() {
    double load = 0;
    getloadavg(&load, 1);
    std::printf("%s, %d cores, load %.1f, %s\n", processorModel().c_str(),
                benchmark::CPUInfo::Get().num_cpus, load, compiler().c_str());
}

bool isReached(Row const& row) { return row.measured <= row.least * row.target; }

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
