#include <charconv>
#include <cstring>
#include <iostream>
#include <string>

#include "Scenarios.h"

namespace {

constexpr char kHelp[] =
    "Usage: tvhw_interleave [--bound N]\n"
    "       tvhw_interleave --replay SCENARIO DECISIONS\n"
    "\n"
    "Runs the library under every order in which the threads of each scenario can go on, and "
    "checks\n"
    "what each of them does. Exits with 0 when all is well, 1 when a rule is broken or a scenario\n"
    "is not walked to its end, 2 when the options are wrong.\n"
    "\n"
    "  --bound N   how often a thread is made to stop where it could go on, 0 to 9; 2 if not "
    "given\n"
    "  --replay    runs one order, as printed with a broken rule, and prints what each thread "
    "does\n";

int walkAll(unsigned int bound) {
    std::size_t complete = 0;
    std::uint64_t schedules = 0;
    auto const all = interleave::scenarios();
    for (auto const& scenario : all) {
        auto const walk = interleave::explore(scenario, bound);
        schedules += walk.schedules;
        complete += walk.isComplete ? 1 : 0;
        std::cout << scenario.name << ": " << walk.schedules << " schedules, "
                  << (walk.isComplete ? "complete" : "not complete") << std::endl;
    }
    std::cout << all.size() << " scenarios, " << schedules << " schedules, " << complete
              << " scenarios complete with at most " << bound << " preemptions" << std::endl;
    return complete == all.size() ? 0 : 1;
}

int replay(std::string const& name, std::string const& decisions) {
    for (auto const& scenario : interleave::scenarios()) {
        if (scenario.name == name) {
            interleave::replay(scenario, decisions);
            return 0;
        }
    }
    std::cerr << "tvhw_interleave: no scenario '" << name << "'\n";
    return 2;
}

}  // namespace

int main(int count, char** arguments) {
    std::string const option = count > 1 ? arguments[1] : "";
    if (option == "--help") {
        std::cout << kHelp;
        return 0;
    }
    if (option == "--replay" && count == 4) {
        return replay(arguments[2], arguments[3]);
    }
    bool const hasBound = option == "--bound" && count == 3 && std::strlen(arguments[2]) == 1 &&
                          arguments[2][0] >= '0' && arguments[2][0] <= '9';
    if (count != 1 && !hasBound) {
        std::cerr << "tvhw_interleave: these options make no sense; see --help\n";
        return 2;
    }
    return walkAll(hasBound ? static_cast<unsigned int>(arguments[2][0] - '0') : 2);
}
