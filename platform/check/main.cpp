#include <algorithm>
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

Exits with 0 when all came out as expected, 1 when not, 2 for a wrong argument.
)";

constexpr char const* kNotChecked[] = {
    "pictures and windows as the panel shows them, and pictures in the platform's own memory",
    "what the log prints where it does not print to standard output or error",
    "what the log calls, and whether it is called at all",
    "that the two notices reach whom they are for, and that a property that is set is read",
    "cores against the chip's data sheet, and that an encoder's core encodes",
    "what happens at exit, in other processes, and when a process dies",
};

struct Subsystem {
    char const* name;
    Checks checks;
    int well = 0;
    int failed = 0;
    int skipped = 0;
};

using Subsystems = std::vector<Subsystem>;

Subsystems allSubsystems() {
    return {{"manager", managerChecks()}, {"scaler", scalerChecks()},   {"output", outputChecks()},
            {"panel", panelChecks()},     {"utility", utilityChecks()}, {"log", logChecks()},
            {"common", libraryChecks()}};
}

struct Options {
    std::string only;
    std::vector<std::string> names;
    int repeat = 1;
    bool isTap = false;
    bool listsOnly = false;
};

int refuse(std::string const& what) {
    static_cast<void>(std::fprintf(stderr, "tvhw-platform-check: %s; see --help\n", what.c_str()));
    return 2;
}

void print(char const* subsystem, Check const& check, Outcome const& outcome,
           long long milliseconds, int tapNumber) {
    bool const isSkipped = outcome.kind == Outcome::Kind::kSkipped;
    bool const isWell = outcome.kind == Outcome::Kind::kWell;
    char const* const level = check.level == Level::kMust ? "must" : "should";
    if (tapNumber > 0) {
        std::printf("%s %d - %s/%s%s%s\n", isWell || isSkipped ? "ok" : "not ok", tapNumber,
                    subsystem, check.name, isSkipped ? " # SKIP " : "",
                    isSkipped ? outcome.came.c_str() : "");
        std::printf("# %s, %lld ms; done: %s; expected: %s; came: %s\n", level, milliseconds,
                    check.done, check.expected, outcome.came.c_str());
    } else if (isSkipped) {
        std::printf("skipped %s: %s (%s, %lld ms)\n", check.name, outcome.came.c_str(), level,
                    milliseconds);
    } else {
        std::printf("%s%s: %s: expected %s; came: %s (%s, %lld ms)\n",
                    isWell ? "ok      " : "FAILED  ", check.name, check.done, check.expected,
                    outcome.came.c_str(), level, milliseconds);
    }
    static_cast<void>(std::fflush(stdout));
}

/// Runs a check as often as is asked for, up to the first time that it is not well.
Outcome runRepeatedly(Check const& check, int repeat) {
    Outcome result;
    for (int run = 1; run <= repeat; ++run) {
        result = runApart(check);
        if (result.kind != Outcome::Kind::kWell) {
            if (run > 1) {
                result.came += ", in run " + std::to_string(run);
            }
            break;
        }
    }
    return result;
}

int runAll(Subsystems& subsystems, Options const& options) {
    std::size_t all = 0;
    for (Subsystem const& subsystem : subsystems) {
        all += subsystem.checks.size();
    }
    if (options.isTap) {
        std::printf("TAP version 13\n1..%zu\n", all);
    }
    int number = 0;
    for (Subsystem& subsystem : subsystems) {
        for (Check const& check : subsystem.checks) {
            auto const start = std::chrono::steady_clock::now();
            Outcome const outcome = runRepeatedly(check, options.repeat);
            auto const took = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - start);
            print(subsystem.name, check, outcome, took.count(), options.isTap ? ++number : 0);
            ++(outcome.kind == Outcome::Kind::kWell      ? subsystem.well
               : outcome.kind == Outcome::Kind::kSkipped ? subsystem.skipped
                                                         : subsystem.failed);
        }
    }
    char const* const lead = options.isTap ? "# " : "";
    std::printf("%sNot checked, as a program cannot know:\n", lead);
    for (char const* const what : kNotChecked) {
        std::printf("%s  %s\n", lead, what);
    }
    Subsystem total{"all", {}};
    for (Subsystem const& subsystem : subsystems) {
        if (!subsystem.checks.empty()) {
            std::printf("%s%s: %d ok, %d failed, %d skipped\n", lead, subsystem.name,
                        subsystem.well, subsystem.failed, subsystem.skipped);
        }
        total.well += subsystem.well;
        total.failed += subsystem.failed;
        total.skipped += subsystem.skipped;
    }
    std::string const unknown =
        total.skipped == 0 ? "" : ", " + std::to_string(total.skipped) + " skipped";
    std::printf("%s%d of %zu checks came out as expected%s\n", lead, total.well, all,
                unknown.c_str());
    return total.failed == 0 ? 0 : 1;
}

Check const* find(Subsystems const& subsystems, std::string const& name) {
    for (Subsystem const& subsystem : subsystems) {
        for (Check const& check : subsystem.checks) {
            if (check.name == name) {
                return &check;
            }
        }
    }
    return nullptr;
}

/// Leaves only the checks that the options ask for.
void choose(Subsystems& subsystems, Options const& options) {
    for (Subsystem& subsystem : subsystems) {
        auto const isLeftOut = [&](Check const& check) {
            return (!options.only.empty() && options.only != subsystem.name) ||
                   (!options.names.empty() && std::find(options.names.begin(), options.names.end(),
                                                        check.name) == options.names.end());
        };
        auto& checks = subsystem.checks;
        checks.erase(std::remove_if(checks.begin(), checks.end(), isLeftOut), checks.end());
    }
}

/// Reads an option that `argument` names, with `value` behind it. Returns how many arguments it
/// has; 0 when it is wrong.
int readOption(std::string const& argument, char const* value, Options& options) {
    if (argument == "--list") {
        options.listsOnly = true;
    } else if (argument == "--tap") {
        options.isTap = true;
    } else if (argument == "--no-decoder") {
        gLacking.decoder = true;
    } else if (argument == "--no-encoder") {
        gLacking.encoder = true;
    } else if (argument == "--only" && value != nullptr) {
        options.only = value;
        return 2;
    } else if (argument == "--repeat" && value != nullptr) {
        char* end = nullptr;
        long const number = std::strtol(value, &end, 10);
        options.repeat = static_cast<int>(number);
        return end != value && *end == '\0' && number >= 1 && number <= 100000 ? 2 : 0;
    } else {
        return 0;
    }
    return 1;
}

/// Reads the arguments. Returns what is wrong with them.
std::string readArguments(std::vector<std::string> const& arguments, Subsystems const& subsystems,
                          Options& options) {
    for (std::size_t index = 0; index < arguments.size();) {
        std::string const& argument = arguments[index];
        if (argument.rfind("--", 0) == 0) {
            char const* const value =
                index + 1 < arguments.size() ? arguments[index + 1].c_str() : nullptr;
            int const count = readOption(argument, value, options);
            if (count == 0) {
                return "no such option, or not with that value: " + argument;
            }
            index += static_cast<std::size_t>(count);
        } else if (find(subsystems, argument) == nullptr) {
            return "there is no check " + argument;
        } else {
            options.names.push_back(argument);
            ++index;
        }
    }
    bool const isSubsystem =
        options.only.empty() ||
        std::any_of(subsystems.begin(), subsystems.end(),
                    [&](Subsystem const& subsystem) { return subsystem.name == options.only; });
    return isSubsystem ? "" : "there is no subsystem " + options.only;
}

int runProgram(std::vector<std::string> const& arguments) {
    Subsystems subsystems = allSubsystems();
    if (arguments.size() == 3 && arguments[0] == kApartOption) {
        if (Check const* const check = find(subsystems, arguments[1])) {
            runHere(*check, static_cast<int>(std::strtol(arguments[2].c_str(), nullptr, 10)));
        }
    }
    if (std::find(arguments.begin(), arguments.end(), "--help") != arguments.end()) {
        std::printf("%s", kHelp);
        return 0;
    }
    Options options;
    std::string const mistake = readArguments(arguments, subsystems, options);
    if (!mistake.empty()) {
        return refuse(mistake);
    }
    choose(subsystems, options);
    if (std::all_of(subsystems.begin(), subsystems.end(),
                    [](Subsystem const& subsystem) { return subsystem.checks.empty(); })) {
        return refuse("no such check in " + options.only);
    }
    if (!options.listsOnly) {
        return runAll(subsystems, options);
    }
    for (Subsystem const& subsystem : subsystems) {
        for (Check const& check : subsystem.checks) {
            std::printf("%s\n", check.name);
        }
    }
    return 0;
}

}  // namespace

}  // namespace kvo::check

// On a device nothing throws; here only a lack of memory does.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int count, char** arguments) {
    return kvo::check::runProgram(std::vector<std::string>(arguments + 1, arguments + count));
}
