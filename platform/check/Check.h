#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvo::check {

/// What came of a check.
struct Outcome {
    enum class Kind { kFailed, kWell, kSkipped };
    Kind kind = Kind::kFailed;
    std::string came;  ///< All values; of a skipped check the reason.
};

/// What the media library loses without it.
enum class Level {
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
};

using Checks = std::vector<Check>;

// The checks of each subsystem, in the order in which they run.
Checks managerChecks();
Checks scalerChecks();
Checks outputChecks();
Checks panelChecks();
Checks utilityChecks();
Checks logChecks();
Checks libraryChecks();

/// What the user has said that the chip lacks.
struct Lacking {
    bool decoder = false;
    bool encoder = false;
};
extern Lacking gLacking;

inline Outcome outcome(bool isWell, std::string came) {
    return {isWell ? Outcome::Kind::kWell : Outcome::Kind::kFailed, std::move(came)};
}

inline Outcome skipped(std::string reason) { return {Outcome::Kind::kSkipped, std::move(reason)}; }

/// Values with their names, as a line of the output shows them.
using Values = std::initializer_list<std::pair<char const*, long long>>;

inline std::string values(Values named) {
    std::string text;
    for (auto const& [name, value] : named) {
        text += (text.empty() ? "" : ", ") + std::string(name) + " " + std::to_string(value);
    }
    return text;
}

/// A value with its name, and what it should be.
struct Compared {
    char const* name;
    long long came;
    long long expected = 0;
};

inline Outcome areEqual(std::initializer_list<Compared> all) {
    bool isWell = true;
    std::string came;
    for (auto const& [name, value, expected] : all) {
        isWell = isWell && value == expected;
        came += (came.empty() ? "" : ", ") + values({{name, value}});
    }
    return outcome(isWell, came);
}

/// The results of calls in their order, all of which must be 0.
class Steps {
public:
    void operator()(char const* step, int result) {
        mIsWell = mIsWell && result == 0;
        mCame += (mCame.empty() ? "" : ", ") + std::string(step) + " " + std::to_string(result);
    }
    [[nodiscard]] Outcome done() const { return outcome(mIsWell, mCame); }

private:
    bool mIsWell = true;
    std::string mCame;
};

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

}  // namespace kvo::check

/// A function of the platform, to be called at once: CALL(f)(x).
#define CALL(function)                          \
    [](auto... arguments) {                     \
        kvo::check::InCall const in(#function); \
        return function(arguments...);          \
    }
