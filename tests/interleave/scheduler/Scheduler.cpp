#include "scheduler/Scheduler.h"

#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <limits>
#include <map>
#include <set>
#include <utility>

#include "scheduler/FreedMemory.h"

namespace interleave {

namespace {

constexpr std::size_t kMaxThreads = 6;
constexpr std::size_t kStackSize = 256 * 1024;
constexpr std::size_t kMaxPoints = 10'000;  ///< Of a run that will end.
constexpr std::uint64_t kMaxSchedules = 3'000'000;
constexpr Nanoseconds kClockBegin = 3'600'000'000'000;

enum class Wait { kNone, kLock, kSignal, kTime, kReady, kEnd };

struct Thread {
    std::string name;
    std::function<void()> body;
    std::size_t number = 0;
    ucontext_t context{};
    Wait wait = Wait::kNone;
    void const* mutex = nullptr;  ///< To be locked before it goes on.
    void const* condition = nullptr;
    Nanoseconds deadline = 0;
    std::function<bool()> isReady;
    std::size_t locksHeld = 0;
    std::vector<SignalWait> waits;
};

/// One way to go on.
struct Option {
    enum class Wake { kNormal, kTimeout, kSpurious };
    Thread* thread;
    Wake wake;
};

struct Decision {
    std::size_t chosen = 0;
    std::size_t options = 0;    ///< 0 when not known yet.
    bool isPreemption = false;  ///< When not the first option is chosen.
    unsigned int preemptionsBefore = 0;
};

/// One run of a scenario.
struct Run {
    std::deque<Thread> threads;
    Thread* running = nullptr;
    std::map<void const*, Thread*> owners;  ///< Of the mutexes that are locked.
    std::map<void const*, int> numbers;     ///< Of the mutexes, for the trace.
    Nanoseconds now = kClockBegin;
    bool hadSpuriousWake = false;
    std::size_t decisions = 0;
    std::size_t points = 0;
    unsigned int preemptions = 0;
};

Run gRun;
bool gIsRunning = false;
bool gIsReplay = false;
ucontext_t gExplorer;
Scenario const* gScenario = nullptr;
unsigned long long gSchedules = 0;     ///< Of this scenario.
unsigned long long gAllSchedules = 0;  ///< Of all scenarios.
std::vector<Decision> gPath;  ///< The decisions of this run; beyond them the first option is taken.
std::set<std::string> gSeen;

/// What was chosen at each decision of this run: a digit each, up to the last that is not 0.
std::string decisionsText() {
    std::string text;
    for (std::size_t index = 0; index < gRun.decisions; ++index) {
        text.push_back(static_cast<char>('0' + gPath[index].chosen));
    }
    return text.substr(0, text.find_last_not_of('0') + 1);
}

/// Ends the process, after another one has shown how the run came to this.
[[noreturn]] void breakRun(std::string const& what) {
    bool const isShown = std::exchange(gIsRunning, false) && !gIsReplay;
    char const* const name = gScenario->name.c_str();
    std::printf("%s: broken after %llu schedules: %s\n", name, gAllSchedules, what.c_str());
    std::string const decisions = decisionsText();
    if (isShown) {
        std::printf("The same again, by --replay %s '%s':\n", name, decisions.c_str());
    }
    std::fflush(stdout);
    if (isShown && fork() == 0) {
        execl("/proc/self/exe", "explorer", "--replay", name, decisions.c_str(), nullptr);
    }
    wait(nullptr);
    _exit(1);
}

void onSignal(int signal) {
    breakRun("memory is used that was freed, or the library gives up: signal " +
             std::to_string(signal));
}

void trace(std::string const& what) {
    if (gIsReplay) {
        double const seconds = static_cast<double>(gRun.now - kClockBegin) / 1e9;
        std::printf("%5.1f s  %-10s%s\n", seconds, gRun.running->name.c_str(), what.c_str());
        std::fflush(stdout);
    }
}

void traceLock(char const* what, void const* mutex) {
    if (gIsReplay) {
        int const next = static_cast<int>(gRun.numbers.size());
        trace(what + std::to_string(gRun.numbers.emplace(mutex, next).first->second));
    }
}

void addOptions(Thread& thread, Nanoseconds firstDeadline, std::vector<Option>& options) {
    bool const lockIsFree = gRun.owners.count(thread.mutex) == 0;
    bool const isTimed = thread.wait == Wait::kTime || thread.wait == Wait::kSignal;
    // While another thread has the lock, to wake is no more than to wait for the lock.
    bool const canWake = thread.wait == Wait::kTime || lockIsFree;
    if (thread.wait == Wait::kNone || (thread.wait == Wait::kLock && lockIsFree) ||
        (thread.wait == Wait::kReady && thread.isReady())) {
        options.push_back({&thread, Option::Wake::kNormal});
    }
    if (isTimed && canWake && thread.deadline == firstDeadline) {
        options.push_back({&thread, Option::Wake::kTimeout});
    }
    if (thread.wait == Wait::kSignal && canWake && !gRun.hadSpuriousWake) {
        options.push_back({&thread, Option::Wake::kSpurious});
    }
}

/// The ways to go on; to go on with the running thread is the first, if it can.
std::vector<Option> const& findOptions() {
    static std::vector<Option> options;
    options.clear();
    Nanoseconds firstDeadline = std::numeric_limits<Nanoseconds>::max() - 1;
    for (auto const& thread : gRun.threads) {
        if (thread.wait == Wait::kTime || thread.wait == Wait::kSignal) {
            firstDeadline = std::min(firstDeadline, thread.deadline);
        }
    }
    addOptions(*gRun.running, firstDeadline, options);
    for (auto& thread : gRun.threads) {
        if (&thread != gRun.running) {
            addOptions(thread, firstDeadline, options);
        }
    }
    return options;
}

Option decide(std::vector<Option> const& options) {
    if (options.size() == 1) {
        return options.front();
    }
    if (gRun.decisions == gPath.size()) {
        gPath.emplace_back();
    }
    Decision& decision = gPath[gRun.decisions++];
    bool const isSame = decision.options == 0 || decision.options == options.size();
    expect(isSame && decision.chosen < options.size(), "the same decisions make another run");
    Option const& first = options.front();
    decision.options = options.size();
    decision.isPreemption = first.thread == gRun.running && first.wake == Option::Wake::kNormal;
    decision.preemptionsBefore = gRun.preemptions;
    gRun.preemptions += decision.isPreemption && decision.chosen != 0 ? 1 : 0;
    return options[decision.chosen];
}

/// Goes on with the thread that is chosen; returns when this one is.
void schedule() {
    expect(++gRun.points < kMaxPoints, "the threads go on for ever");
    auto const& options = findOptions();
    expect(!options.empty(), "no thread can go on");
    Option const option = decide(options);
    Thread& next = *option.thread;
    Thread& previous = *std::exchange(gRun.running, &next);
    if (option.wake == Option::Wake::kTimeout) {
        gRun.now = std::max(gRun.now, next.deadline);
        trace("its time has come");
    } else if (option.wake == Option::Wake::kSpurious) {
        gRun.hadSpuriousWake = true;
        trace("wakes for nothing");
    }
    if (next.wait == Wait::kSignal) {
        next.waits.back().timedOut = option.wake == Option::Wake::kTimeout;
    }
    if (next.wait == Wait::kSignal || next.wait == Wait::kLock) {
        expect(!isFreed(next.mutex), "a lock is freed that a thread waits for");
        gRun.owners[next.mutex] = &next;
        ++next.locksHeld;
    }
    next.wait = Wait::kNone;
    if (&next != &previous) {
        swapcontext(&previous.context, &next.context);
    }
}

void runThread() {
    Thread& self = *gRun.running;
    self.body();
    self.body = nullptr;
    expect(self.locksHeld == 0, "a thread ends with a lock held");
    self.wait = Wait::kEnd;
    if (self.number == 0) {
        setcontext(&gExplorer);
    }
    trace("ends");
    schedule();
}

void runOnce() {
    gRun = {};
    ++gSchedules;
    ++gAllSchedules;
    start("main", gScenario->body);
    gRun.running = &gRun.threads.front();
    gIsRunning = true;
    swapcontext(&gExplorer, &gRun.running->context);
    bool const isUntouched = freeAll();
    expect(isUntouched, "memory was written to that was freed");
    gIsRunning = false;
}

/// Turns the path into the next one within the bound, depth first. Returns false after the last.
bool advance(unsigned int bound) {
    for (; !gPath.empty(); gPath.pop_back()) {
        Decision& last = gPath.back();
        bool const isAffordable = !last.isPreemption || last.preemptionsBefore < bound;
        if (isAffordable && last.chosen + 1 < last.options) {
            ++last.chosen;
            return true;
        }
    }
    return false;
}

void prepare(Scenario const& scenario) {
    gScenario = &scenario;
    gSchedules = 0;
    gSeen.clear();
    for (int const signal : {SIGSEGV, SIGBUS, SIGABRT}) {
        std::signal(signal, onSignal);
    }
}

__attribute__((format(printf, 1, 0))) std::string formatted(char const* format,
                                                            std::va_list arguments) {
    std::array<char, 300> text{};
    static_cast<void>(std::vsnprintf(text.data(), text.size(), format, arguments));
    return text.data();
}

/// Has the running thread wait.
void waitFor(Wait wait) {
    gRun.running->wait = wait;
    schedule();
}

/// Takes a lock from the running thread.
void giveUp(void const* mutex) {
    auto const owner = gRun.owners.find(mutex);
    expect(owner != gRun.owners.end() && owner->second == gRun.running, "no such lock is held");
    expect(!isFreed(mutex), "a lock is freed that is held");
    gRun.owners.erase(owner);
    --gRun.running->locksHeld;
}

}  // namespace

Walk explore(Scenario const& scenario, unsigned int bound) {
    prepare(scenario);
    bool isComplete = false;
    while (!isComplete && gSchedules < kMaxSchedules) {
        runOnce();
        isComplete = !advance(bound);
    }
    for (auto const& fact : scenario.facts) {
        expect(gSeen.count(fact) != 0, "none of them shows that %s", fact.c_str());
    }
    return {gSchedules, isComplete};
}

void replay(Scenario const& scenario, std::string const& decisions) {
    prepare(scenario);
    gIsReplay = true;
    for (char const digit : decisions) {
        gPath.push_back({static_cast<std::size_t>(digit - '0'), 0, false, 0});
    }
    runOnce();
}

void start(std::string name, std::function<void()> body) {
    static std::array<std::array<char, kStackSize>, kMaxThreads> stacks;
    std::size_t const number = gRun.threads.size();
    Thread& thread = gRun.threads.emplace_back();
    thread.name = std::move(name);
    thread.body = std::move(body);
    thread.number = number;
    getcontext(&thread.context);
    thread.context.uc_stack.ss_sp = stacks.at(number).data();
    thread.context.uc_stack.ss_size = kStackSize;
    makecontext(&thread.context, runThread, 0);
}

void joinAll() {
    waitUntil([] {
        return std::all_of(gRun.threads.begin() + 1, gRun.threads.end(),
                           [](auto const& thread) { return thread.wait == Wait::kEnd; });
    });
}

void point(char const* format, ...) {
    if (gIsReplay) {
        std::va_list arguments;
        va_start(arguments, format);
        trace(formatted(format, arguments));
        va_end(arguments);
    }
    schedule();
}

void waitUntil(std::function<bool()> isReady) {
    gRun.running->isReady = std::move(isReady);
    waitFor(Wait::kReady);
}

void sleepUntil(Nanoseconds time) {
    gRun.running->deadline = time;
    waitFor(Wait::kTime);
}

Nanoseconds now() { return gRun.now; }

std::size_t threadNumber() { return gRun.running->number; }

std::size_t locksHeld() { return gRun.running->locksHeld; }

std::vector<SignalWait> const& waitsOf(std::size_t thread) { return gRun.threads[thread].waits; }

void clearWaits() { gRun.running->waits.clear(); }

void expect(bool isTrue, char const* format, ...) {
    if (!isTrue) {
        std::va_list arguments;
        va_start(arguments, format);
        std::string const what = formatted(format, arguments);
        va_end(arguments);
        breakRun(what);
    }
}

void seen(char const* fact) {
    trace(std::string("so: ") + fact);
    gSeen.insert(fact);
}

bool isRunning() { return gIsRunning; }

void lock(void const* mutex) {
    expect(!isFreed(mutex), "a lock is taken that was freed");
    expect(locksHeld() == 0, "a lock is taken while another is held");
    traceLock("takes lock ", mutex);
    gRun.running->mutex = mutex;
    waitFor(Wait::kLock);
}

void unlock(void const* mutex) {
    giveUp(mutex);
    traceLock("drops lock ", mutex);
    schedule();
}

void waitForSignal(void const* condition, void const* mutex, Nanoseconds deadline) {
    giveUp(mutex);
    traceLock("waits for a signal, without lock ", mutex);
    Thread& self = *gRun.running;
    self.condition = condition;
    self.mutex = mutex;
    self.deadline = deadline;
    self.waits.push_back({gRun.now, deadline, false});
    waitFor(Wait::kSignal);
}

void signal(void const* condition, bool all) {
    expect(!isFreed(condition), "a condition is signalled that was freed");
    expect(locksHeld() == 1, "a condition is signalled without its lock");
    point("signals");
    for (auto& thread : gRun.threads) {
        if (thread.wait == Wait::kSignal && thread.condition == condition) {
            thread.wait = Wait::kLock;
            if (!all) {
                return;
            }
        }
    }
}

}  // namespace interleave
