#pragma once

#include <array>
#include <chrono>
#include <future>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace kvo::check {

/// What came of a check.
struct Outcome {
    enum class Kind { kWell, kFailed, kSkipped };
    Kind kind = Kind::kFailed;
    std::string came;  ///< All values; of a skipped check the reason.
};

/// What the media library loses without it.
enum Level {
    kMust,    ///< It fails, or harms others.
    kShould,  ///< It does less. A platform may have decided so.
};

/// One demand on the platform, which docs/porting.md lists under the same name.
struct Check {
    Level level;
    char const* name;
    char const* done;      ///< What is done, for a reader who does it by hand.
    char const* expected;  ///< In words.
    Outcome (*run)();
    char const* subsystem = nullptr;
};

using Checks = std::vector<Check>;

// The checks of each subsystem, in the order in which they run.
Checks grantChecks();
Checks reclaimChecks();
Checks scalerChecks();
Checks outputChecks();
Checks panelChecks();
Checks utilityChecks();
Checks logChecks();
Checks libraryChecks();

/// What the user has said that the chip lacks, if not 0.
struct Lacking {
    int decoder = 0;
    int encoder = 0;
};
extern Lacking gLacking;

inline Outcome outcome(bool isWell, std::string came) {
    return {isWell ? Outcome::Kind::kWell : Outcome::Kind::kFailed, std::move(came)};
}

inline Outcome skipped(std::string reason) { return {Outcome::Kind::kSkipped, std::move(reason)}; }

/// A value with its name, and what it must be.
struct Value {
    static constexpr long long kAny = -987654321;  ///< It is only shown.

    template <typename Number>
    Value(std::string its, Number number, long long must = 0)
        : name(std::move(its)), came(static_cast<long long>(number)), expected(must) {}

    std::string name;
    long long came;
    long long expected;
};

using Values = std::vector<Value>;

/// Values with their names, as a line of the output shows them.
inline std::string text(Values const& values) {
    std::string all;
    for (Value const& value : values) {
        all +=
            (all.empty() ? "" : ", ") + std::string(value.name) + " " + std::to_string(value.came);
    }
    return all;
}

/// Well when all values are what they must be. Shows them, and what else there is to see.
inline Outcome areRight(Values const& values, std::string const& besides = "") {
    bool isWell = true;
    for (Value const& value : values) {
        isWell = isWell && (value.came == value.expected || value.expected == Value::kAny);
    }
    return outcome(isWell, text(values) + besides);
}

/// What came of steps, in this order.
inline Values inOrder(std::initializer_list<Values> const& steps) {
    Values all;
    for (Values const& values : steps) {
        all.insert(all.end(), values.begin(), values.end());
    }
    return all;
}

/// What this process has that a platform might keep; expected is what is too much for 98 rounds.
Values usage();

/// What is kept beyond `before`, about a hundred rounds ago, right where it is not too much. Waits
/// for what is ending, up to a second.
Values keptSince(Values const& before);

/// Does `once`, which is told the round from 0 and returns values, a thousand times, or a hundred
/// at least when that takes long, up to the first time that they are not right, or that something
/// was kept in two hundreds one after the other: what is made once, in one of them, may be.
template <typename Once>
Outcome manyTimes(Once const& once) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    Outcome outcome;
    Values before;
    int again = 100;
    for (int round = 0;
         round < again || (round < 1000 && std::chrono::steady_clock::now() < end);) {
        Values values = once(round++);
        before = round == 2 ? usage() : before;
        if (round % 100 == 0) {
            Values const kept = keptSince(before);
            bool const isRight = areRight(kept).kind == Outcome::Kind::kWell;
            values = isRight || (again == round && again > 100) ? inOrder({values, kept}) : values;
            again = isRight ? 100 : round + 100;
            before = usage();
        }
        outcome = areRight(values, ", in round " + std::to_string(round));
        if (outcome.kind != Outcome::Kind::kWell) {
            break;
        }
    }
    return outcome;
}

/// Does something on a thread of its own. Returns its result.
template <typename Work>
auto onAnotherThread(Work const& work) {
    return std::async(std::launch::async, work).get();
}

/// Lets four threads do `work`, which is told a number of their own.
template <typename Work>
void inFourThreads(Work const& work) {
    std::array<std::future<void>, 4> threads;  // Which are waited for.
    int number = 0;
    for (auto& thread : threads) {
        thread = std::async(std::launch::async, work, number++);
    }
}

/// While it lives, its thread is inside a call of the platform, by whose name a crash or a hang of
/// the check is reported. `call` must be a literal.
class InCall {
public:
    explicit InCall(char const* call);
    InCall(InCall const&) = delete;
    InCall& operator=(InCall const&) = delete;
    ~InCall();

private:
    char const* mOuter;
};

/// Runs a check in a process of its own, which starts this program anew: what ends that process,
/// or keeps it for too long, is the outcome.
Outcome runApart(Check const& check);

/// The option by which runApart starts this program, before the name of the check and a number.
constexpr char kApartOption[] = "--apart";

/// Runs a check in the process that runApart has started with this number, which then ends.
[[noreturn]] void runHere(Check const& check, int number);

/// The platform's libraries have been loaded: what ends the process from now on is not that.
void endLoading();

}  // namespace kvo::check

/// A function of the platform, to be called at once: CALL(f)(x).
#define CALL(function)                          \
    [](auto... arguments) {                     \
        kvo::check::InCall const in(#function); \
        return function(arguments...);          \
    }
