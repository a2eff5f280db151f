#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Check.h"

// What the library relies on, asked of whatever platform is loaded; docs/porting.md tells the rest.
namespace kvo::check {

namespace {

constexpr char kHelp[] = R"(Usage: tvhw-platform-check [OPTION...] [NAME...]

Checks that the platform's libraries do what the media library relies on: all checks, or those
named. Needs a platform on which nothing else plays. Each check runs in a process of its own and
prints what was done, what was expected and what came.

  --only SUBSYSTEM  only manager, scaler, output, panel, utility, log or common
  --repeat COUNT    each check COUNT times, up to its first failure
  --no-decoder      the chip decodes nothing: no core of a decoder is expected
  --no-encoder      the chip encodes nothing: no core of an encoder is expected
  --tap             the Test Anything Protocol
  --list            names the checks, and runs none
  --version         prints the version

Exits with 0 when all came out as expected, 1 when not, 2 for a wrong argument. A library that
ends the process as it is loaded is told by one line, and the status is not 0.
)";

constexpr char const* kNotChecked[] = {
    "pictures and windows as the panel shows them, and pictures in the platform's own memory",
    "what the log prints where it does not print to standard output or error",
    "what the log calls, and whether it is called at all",
    "that the two notices reach whom they are for, and that a property that is set is read",
    "cores against the chip's data sheet, which of two alike is granted, and that encoders' encode",
    "what happens at exit, in other processes, and when a process dies",
    "memory that is kept in pieces of less than 64 KB each time",
};

constexpr struct {
    char const* name;
    Checks (*checks)();
} kSubsystems[] = {{"manager", grantChecks}, {"manager", reclaimChecks}, {"scaler", scalerChecks},
                   {"output", outputChecks}, {"panel", panelChecks},     {"utility", utilityChecks},
                   {"log", logChecks},       {"common", libraryChecks}};

/// How many checks were well, have failed and were skipped.
using Counts = std::array<int, 3>;

struct Options {
    std::string only;
    std::vector<std::string> names;
    int repeat = 1;
    int isTap = 0;
    int listsOnly = 0;
};

void print(Check const& check, Outcome const& outcome, long long milliseconds, int tapNumber) {
    bool const isSkipped = outcome.kind == Outcome::Kind::kSkipped;
    bool const isWell = outcome.kind == Outcome::Kind::kWell;
    char const* const came = outcome.came.c_str();
    char const* const level = check.level == kMust ? "must" : "should";
    if (tapNumber > 0) {
        std::printf("%s %d - %s/%s%s%s\n", isWell || isSkipped ? "ok" : "not ok", tapNumber,
                    check.subsystem, check.name, isSkipped ? " # SKIP " : "",
                    isSkipped ? came : "");
        std::printf("# %s, %lld ms; done: %s; expected: %s; came: %s\n", level, milliseconds,
                    check.done, check.expected, came);
    } else if (isSkipped) {
        std::printf("skipped %s: %s (%s, %lld ms)\n", check.name, came, level, milliseconds);
    } else {
        std::printf("%s%s: %s: expected %s; came: %s (%s, %lld ms)\n",
                    isWell ? "ok      " : "FAILED  ", check.name, check.done, check.expected, came,
                    level, milliseconds);
    }
    static_cast<void>(std::fflush(stdout));
}

/// Runs a check as often as is asked for, up to the first time that it is not well.
Outcome runRepeatedly(Check const& check, int repeat) {
    Outcome result;
    for (int run = 1; run <= repeat; ++run) {
        result = runApart(check);
        if (result.kind != Outcome::Kind::kWell) {
            result.came += run > 1 ? ", in run " + std::to_string(run) : "";
            break;
        }
    }
    return result;
}

int runAll(Checks const& all, Options const& options) {
    if (options.isTap != 0) {
        std::printf("TAP version 13\n1..%zu\n", all.size());
    }
    std::vector<std::pair<std::string, Counts>> counts;
    Counts total{};
    int number = 0;
    for (Check const& check : all) {
        auto const start = std::chrono::steady_clock::now();
        Outcome const outcome = runRepeatedly(check, options.repeat);
        auto const took = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start);
        ++number;
        print(check, outcome, took.count(), options.isTap != 0 ? number : 0);
        if (counts.empty() || counts.back().first != check.subsystem) {
            counts.emplace_back(check.subsystem, Counts{});
        }
        ++counts.back().second.at(static_cast<std::size_t>(outcome.kind));
        ++total.at(static_cast<std::size_t>(outcome.kind));
    }
    char const* const lead = options.isTap != 0 ? "# " : "";
    std::printf("%sNot checked, as a program cannot know:\n", lead);
    for (char const* const what : kNotChecked) {
        std::printf("%s  %s\n", lead, what);
    }
    for (auto const& [subsystem, its] : counts) {
        std::printf("%s%s: %d ok, %d failed, %d skipped\n", lead, subsystem.c_str(), its[0], its[1],
                    its[2]);
    }
    std::string const unknown = total[2] == 0 ? "" : ", " + std::to_string(total[2]) + " skipped";
    std::printf("%s%d of %zu checks came out as expected%s\n", lead, total[0], all.size(),
                unknown.c_str());
    return total[1] == 0 ? 0 : 1;
}

/// Says whether `name` is asked for: it is in the list, or nothing is.
bool isAskedFor(std::vector<std::string> const& asked, char const* name) {
    return asked.empty() || std::find(asked.begin(), asked.end(), name) != asked.end();
}

/// Reads the arguments. Returns what is wrong with them.
std::string readArguments(int count, char** arguments, Options& options) {
    option const all[] = {{"only", required_argument, nullptr, 'o'},
                          {"repeat", required_argument, nullptr, 'r'},
                          {"no-decoder", no_argument, &gLacking.decoder, 1},
                          {"no-encoder", no_argument, &gLacking.encoder, 1},
                          {"tap", no_argument, &options.isTap, 1},
                          {"list", no_argument, &options.listsOnly, 1},
                          {}};
    opterr = 0;
    for (int found = 0; (found = getopt_long(count, arguments, "", all, nullptr)) != -1;) {
        char* end = nullptr;
        if (found == 'o') {
            options.only = optarg;
        } else if (found == 'r') {
            options.repeat = static_cast<int>(std::strtol(optarg, &end, 10));
            if (*end != '\0' || options.repeat < 1 || options.repeat > 100000) {
                return "--repeat wants a number from 1 to 100000";
            }
        } else if (found != 0) {
            return std::string("no such option, or without its value: ") + arguments[optind - 1];
        }
    }
    options.names.assign(arguments + optind, arguments + count);
    return "";
}

int runProgram(int count, char** arguments) {
    Checks all;
    for (auto const& [name, checks] : kSubsystems) {
        for (Check check : checks()) {
            check.subsystem = name;
            all.push_back(check);
        }
    }
    if (count == 4 && std::string(arguments[1]) == kApartOption) {
        runHere(*std::find_if(
                    all.begin(), all.end(),
                    [&](Check const& each) { return each.name == std::string(arguments[2]); }),
                static_cast<int>(std::strtol(arguments[3], nullptr, 10)));
    }
    if (isAskedFor({arguments, arguments + count}, "--help")) {
        std::printf("%s", kHelp);
        return 0;
    }
    if (count == 2 && std::string(arguments[1]) == "--version") {
        std::puts("tvhw-platform-check " TVHW_VERSION);
        return 0;
    }
    Options options;
    std::string wrong = readArguments(count, arguments, options);
    auto const isLeftOut = [&](Check const& each) {
        return (!options.only.empty() && each.subsystem != options.only) ||
               !isAskedFor(options.names, each.name);
    };
    all.erase(std::remove_if(all.begin(), all.end(), isLeftOut), all.end());
    for (std::string const& name : options.names) {
        if (std::none_of(all.begin(), all.end(),
                         [&](Check const& each) { return each.name == name; })) {
            wrong =
                "there is no check " + name + (options.only.empty() ? "" : " in " + options.only);
        }
    }
    if (wrong.empty() && all.empty()) {
        wrong = "there is no subsystem " + options.only;
    }
    if (!wrong.empty()) {
        static_cast<void>(
            std::fprintf(stderr, "tvhw-platform-check: %s; see --help\n", wrong.c_str()));
        return 2;
    }
    if (options.listsOnly == 0) {
        return runAll(all, options);
    }
    for (Check const& check : all) {
        std::printf("%s\n", check.name);
    }
    return 0;
}

}  // namespace

}  // namespace kvo::check

// On a device nothing throws; here only a lack of memory does.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int count, char** arguments) {
    kvo::check::endLoading();
    int status = kvo::check::runProgram(count, arguments);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        static_cast<void>(
            std::fputs("tvhw-platform-check: the output cannot be written\n", stderr));
        status = std::max(status, 1);
    }
    _exit(status);  // What the platform's libraries do at exit is no part of the check.
}
