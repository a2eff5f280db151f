#include <sys/single_threaded.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "Platform.h"

namespace {

constexpr char kHelp[] =
    R"(Usage: tvhw_interleave [--bound N | --compare RUNS] [SCENARIO...]
       tvhw_interleave --replay SCENARIO DECISIONS

Runs the library, its instrumented copy by LD_LIBRARY_PATH, under every order in which the threads of
each scenario can go on, and checks what each of them does. Exits with 0 when all is well, 1 when a
rule is broken or there are too many orders, 2 when the options are wrong.

  --bound N       only orders with at most N preemptions (0 to 9); any copy of the library will do
  --compare RUNS  makes at most so many runs of each scenario, and of programs that are made up, with
                  a bound, and so many at random: these must come to nothing new
  --replay        runs one order, as printed with a broken rule, and prints what each thread does
)";

constexpr unsigned int kCompareBound = 3;
constexpr unsigned int kPrograms = 100;  ///< To be compared beside the scenarios.

using Names = std::vector<std::string>;
using Bound = std::optional<unsigned int>;

/// Returns those scenarios that are named; all if none is.
std::vector<interleave::Scenario> chosen(Names const& names) {
    std::vector<interleave::Scenario> all;
    interleave::addScalerAndSinkScenarios(all);
    interleave::addCodecScenarios(all);
    auto const isOther = [&](auto const& scenario) {
        return !names.empty() &&
               std::find(names.begin(), names.end(), scenario.name) == names.end();
    };
    all.erase(std::remove_if(all.begin(), all.end(), isOther), all.end());
    if (all.empty()) {
        std::cerr << "tvhw_interleave: no such scenario\n";
        std::exit(2);
    }
    return all;
}

void walkAll(Names const& names, Bound bound) {
    std::uint64_t schedules = 0;
    auto const all = chosen(names);
    for (auto const& scenario : all) {
        auto const walked = interleave::explore(scenario, bound);
        schedules += walked;
        std::cout << scenario.name << ": " << walked << " schedules, complete" << std::endl;
    }
    std::cout << all.size() << " scenarios, " << schedules << " schedules, all complete, "
              << (bound ? "at most " + std::to_string(*bound) + " preemptions"
                        : "races looked for in each")
              << std::endl;
}

void compareAll(Names const& names, std::uint64_t runs) {
    std::uint64_t compared = 0;
    auto all = chosen(names);
    for (unsigned int seed = 0; names.empty() && seed < kPrograms; ++seed) {
        all.push_back(interleave::madeUpProgram(seed));
    }
    for (auto const& scenario : all) {
        compared += interleave::compare(scenario, kCompareBound, runs);
    }
    std::cout << all.size() << " scenarios compared with " << compared
              << " runs of plain searches: nothing new" << std::endl;
}

}  // namespace

int main(int count, char** arguments) {
    __libc_single_threaded = 0;  // References are counted as where there are threads.
    Names const words(arguments + 1, arguments + count);
    std::string const option = words.empty() ? "" : words[0];
    auto const isNumber = [&](std::size_t length) {
        return words.size() > 1 && !words[1].empty() && words[1].size() <= length &&
               words[1].find_first_not_of("0123456789") == std::string::npos;
    };
    if (option == "--help") {
        std::cout << kHelp;
    } else if (option == "--replay" && words.size() == 3) {
        interleave::replay(chosen({words[1]}).front(), words[2]);
    } else if (option == "--compare" && isNumber(9)) {
        compareAll({words.begin() + 2, words.end()}, std::stoull(words[1]));
    } else if (option == "--bound" && isNumber(1)) {
        walkAll({words.begin() + 2, words.end()}, std::stoul(words[1]));
    } else if (option.substr(0, 1) == "-") {
        std::cerr << "tvhw_interleave: these options make no sense; see --help\n";
        return 2;
    } else {
        walkAll(words, {});
    }
    return 0;
}
