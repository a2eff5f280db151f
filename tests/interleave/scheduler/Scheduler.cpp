#include "scheduler/Scheduler.h"

#include <dlfcn.h>
#include <pthread.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <utility>

#include "scheduler/Access.h"
#include "scheduler/FreedMemory.h"
#include "scheduler/Races.h"
#include "scheduler/Search.h"

extern "C" char __executable_start;
extern "C" char etext;

namespace interleave {

namespace {

constexpr std::size_t kStackSize = 256 * 1024;
constexpr std::size_t kMaxPoints = 10'000;        ///< Of a run that will end.
constexpr std::uint64_t kMaxSchedules = 100'000;  ///< With no bound.
constexpr std::uint64_t kMaxBounded = 3'000'000;
constexpr Nanoseconds kClockBegin = 3'600'000'000'000;
constexpr int kColumn = 20;  ///< Width of a thread's in a trace.

enum class Mode { kWalk, kReplay, kCompare };

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
    Nanoseconds clockRead = 0;  ///< When it last read the clock.
    std::function<bool()> isReady;
    std::size_t locksHeld = 0;
    std::vector<SignalWait> waits;
    std::uint32_t steps = 0;
    int lastStep = -1;  ///< Index of an event.
    int enabledBy = -1;
    Clock clock;              ///< See Races.h.
    std::uint64_t heard = 0;  ///< Hash of what it came to.
};

/// One run of a scenario.
struct Run {
    std::deque<Thread> threads;
    Thread* running = nullptr;
    std::map<void const*, Thread*> owners;   ///< Of the mutexes that are locked.
    std::map<void const*, Clock> published;  ///< By releases of locks and atomics.
    std::map<void const*, int> numbers;      ///< Of the mutexes, for the trace.
    Nanoseconds now = kClockBegin;
    bool hadSpuriousWake = false;
    std::size_t decisions = 0;
    std::size_t step = 0;  ///< Index of the event.
    std::string unusual;   ///< The decisions that were not to take the first option.
};

Run gRun;
std::vector<Event> gEvents;  ///< Of the run; what a search keeps stays.
Search* gSearch = nullptr;
bool gIsRunning = false;
bool gIsWatching = false;
bool gIsNoted = false;  ///< The step is written to its event.
bool gIsProgramInstrumented = false;
bool gIsLibraryInstrumented = false;
Mode gMode = Mode::kWalk;
ucontext_t gExplorer;
Scenario const* gScenario = nullptr;
unsigned long long gSchedules = 0;  ///< Of all scenarios.
std::set<std::string> gSeen;
std::array<std::array<char, kStackSize>, kMaxThreads> gStacks;

/// The event of the step.
Event& event() {
    static Event unnoted;
    return gIsNoted ? gEvents[gRun.step] : unnoted;
}

/// Prints where in the source an address lies.
void printPlace(void const* code) {
    Dl_info info{};
    if (dladdr(code, &info) != 0 && info.dli_fname != nullptr) {
        std::ostringstream command;
        command << "addr2line -Cfspe '" << info.dli_fname << "' " << std::hex
                << reinterpret_cast<std::uintptr_t>(code) -
                       reinterpret_cast<std::uintptr_t>(info.dli_fbase) - 1;
        std::fflush(stdout);
        std::system(command.str().c_str());
    }
}

/// Prints the last accesses to what a rule is about.
void printAccesses(std::uintptr_t stake) {
    std::printf("The last accesses to it, from the last on:\n");
    int count = 0;
    for (std::size_t index = gEvents.size(); count < 4 && index-- != 0;) {
        for (Access const& access : gEvents[index].footprint->accesses) {
            if (access.word == stake && count++ < 4) {
                auto const& thread = gRun.threads[threadOf(gEvents[index].choice)];
                std::printf("  %s %s it: ", thread.name.c_str(),
                            access.writes != 0 ? "writes" : "reads");
                printPlace(access.code);
            }
        }
    }
}

/// Ends the process. `stake` is the memory that the rule is about, if any.
[[noreturn]] void breakRun(std::string const& what, std::uintptr_t stake = 0) {
    gIsRunning = gIsWatching = false;
    if (gMode != Mode::kReplay) {
        char const* const name = gScenario->name.c_str();
        std::printf("%s: broken after %llu schedules: %s\n--replay %s '%s'\n", name, gSchedules,
                    what.c_str(), name, gRun.unusual.c_str());
    } else {
        std::printf("Broken: %s\n", what.c_str());
        if (stake != 0) {
            printAccesses(stake);
        }
    }
    std::fflush(stdout);
    _exit(1);
}

void onSignal(int signal) {
    breakRun("memory is used that was freed, or the library gives up: signal " +
             std::to_string(signal));
}

/// Prints what the running thread does, in its column.
void trace(std::string const& what) {
    if (gMode != Mode::kReplay) {
        return;
    }
    Thread const& self = *gRun.running;
    std::printf("%5.1f s  %*s%s: %s\n", static_cast<double>(gRun.now - kClockBegin) / 1e9,
                static_cast<int>(self.number) * kColumn, "", self.name.c_str(), what.c_str());
    std::fflush(stdout);
}

void traceLock(char const* what, void const* mutex) {
    if (gMode == Mode::kReplay) {
        int const next = static_cast<int>(gRun.numbers.size());
        trace(what + std::to_string(gRun.numbers.emplace(mutex, next).first->second));
    }
}

bool isLibrary(void const* code) {
    return code < static_cast<void const*>(&__executable_start) ||
           code >= static_cast<void const*>(&etext);
}

void hear(std::string const& text) {
    std::uint64_t& heard = gRun.running->heard;
    heard = (heard ^ std::hash<std::string>()(text)) * 0x9E3779B97F4A7C15U;
}

/// Has all that the running thread did so far come before what others do when they hear of it.
void publish(Clock& heard) {
    Thread& self = *gRun.running;
    heard.join(self.clock);
    ++self.clock.steps.at(self.number);
}

/// Breaks the run if the library's access is in a race with another.
void expectNoRace(std::uintptr_t word, std::uint8_t bytes, bool isWrite, bool isPlain) {
    if (!gIsLibraryInstrumented) {
        return;  // What orders accesses was not seen.
    }
    Thread const& self = *gRun.running;
    LibraryAccess const access{bytes, isWrite, isPlain, self.number,
                               self.clock.steps.at(self.number)};
    if (auto const* const other = findRace(word, access, self.clock)) {
        breakRun("race: " + gRun.threads[other->thread].name + " and " + self.name +
                     " use the same memory, one writes, and nothing orders them",
                 word);
    }
}

/// Notes that the step touches what the word stands for.
void touch(std::uintptr_t word, bool isWrite) {
    if (gIsNoted) {
        Unseen const unseen;
        Access access;
        access.word = word;
        (isWrite ? access.writes : access.reads) = 0xFF;
        event().footprint->accesses.push_back(access);
    }
}

/// Notes that the step uses a lock or a condition.
void use(void const* object) {
    auto const word = reinterpret_cast<std::uintptr_t>(object) / 8 * 8;
    touch(word, true);
    expectNoRace(word, 0xFF, true, false);
}

void openStep(Choice choice) {
    Thread& thread = *gRun.running;
    ++thread.steps;
    gIsNoted = !gSearch->isRedundant() && gRun.step >= gSearch->kept();
    if (gIsNoted) {
        Event& next = gEvents.emplace_back();
        next.choice = choice;
        next.step = thread.steps;
        next.previous = thread.lastStep;
        next.enabledBy = thread.enabledBy;
    }
    thread.lastStep = static_cast<int>(gRun.step);
    thread.enabledBy = -1;
}

void addOptions(Thread const& thread, Nanoseconds firstDeadline, std::vector<Choice>& options) {
    bool const lockIsFree = gRun.owners.count(thread.mutex) == 0;
    bool const isTimed = thread.wait == Wait::kTime || thread.wait == Wait::kSignal;
    // While another thread has the lock, to wake is no more than to wait for the lock.
    bool const canWake = thread.wait == Wait::kTime || lockIsFree;
    if (thread.wait == Wait::kNone || (thread.wait == Wait::kLock && lockIsFree) ||
        (thread.wait == Wait::kReady && thread.isReady())) {
        options.push_back(choiceOf(thread.number, Wake::kNormal));
    }
    if (isTimed && canWake && thread.deadline == firstDeadline) {
        options.push_back(choiceOf(thread.number, Wake::kTimeout));
    }
    if (thread.wait == Wait::kSignal && canWake && !gRun.hadSpuriousWake) {
        options.push_back(choiceOf(thread.number, Wake::kSpurious));
    }
}

/// The ways to go on; to go on with the running thread is the first, if it can.
std::vector<Choice> const& findOptions() {
    static std::vector<Choice> options;
    options.clear();
    Nanoseconds firstDeadline = std::numeric_limits<Nanoseconds>::max() - 1;
    for (auto const& thread : gRun.threads) {
        if (thread.wait == Wait::kTime || thread.wait == Wait::kSignal) {
            firstDeadline = std::min(firstDeadline, thread.deadline);
        }
    }
    addOptions(*gRun.running, firstDeadline, options);
    for (auto const& thread : gRun.threads) {
        if (&thread != gRun.running) {
            addOptions(thread, firstDeadline, options);
        }
    }
    return options;
}

/// Has the thread that goes on take what it waited for.
void wake(Thread& thread, Choice choice) {
    if (wakeOf(choice) == Wake::kTimeout) {
        gRun.now = std::max(gRun.now, thread.deadline);
        touch(kClockWord, true);
        trace("its time has come");
    } else if (wakeOf(choice) == Wake::kSpurious) {
        gRun.hadSpuriousWake = true;
        touch(kSpuriousWord, true);
        touch(kClockWord, false);
        trace("wakes for nothing");
    }
    if (thread.wait == Wait::kSignal) {
        thread.waits.back().timedOut = wakeOf(choice) == Wake::kTimeout;
        use(thread.condition);
    }
    if (thread.wait == Wait::kSignal || thread.wait == Wait::kLock) {
        expect(!isFreed(thread.mutex), "a lock is freed that a thread waits for");
        gRun.owners[thread.mutex] = &thread;
        ++thread.locksHeld;
        use(thread.mutex);
        thread.clock.join(gRun.published[thread.mutex]);
        event().acquired = thread.mutex;
        event().holdsUp =
            wakeOf(choice) == Wake::kSpurious ||
            std::any_of(gRun.threads.begin(), gRun.threads.end(), [&](Thread const& other) {
                return other.wait == Wait::kSignal && other.mutex == thread.mutex &&
                       &other != &thread;
            });
    }
    bool const isReady = thread.wait == Wait::kReady;
    thread.wait = Wait::kNone;
    if (isReady) {
        // The step depends on what the predicate reads.
        gIsWatching = true;
        static_cast<void>(thread.isReady());
        gIsWatching = false;
    }
}

/// Goes on with the thread that is chosen; returns when this one is.
void schedule() {
    Thread& previous = *gRun.running;
    event().footprint->sort();
    expect(++gRun.step < kMaxPoints, "the threads go on for ever");
    auto const& options = findOptions();
    expect(!options.empty(), "no thread can go on");
    bool const mayStay = options.front() == choiceOf(previous.number, Wake::kNormal);
    Choice const choice = gSearch->choose(options, mayStay);
    if (options.size() > 1) {
        ++gRun.decisions;
        if (choice != options.front()) {
            gRun.unusual += std::to_string(gRun.decisions) + ":" + std::to_string(choice) + " ";
        }
    }
    Thread& next = gRun.threads[threadOf(choice)];
    gRun.running = &next;
    openStep(choice);
    wake(next, choice);
    if (&next != &previous) {
        swapcontext(&previous.context, &next.context);
    }
}

void runThread() {
    Thread& self = *gRun.running;
    gIsWatching = true;
    self.body();
    self.body = nullptr;
    gIsWatching = false;
    expect(self.locksHeld == 0, "a thread ends with a lock held");
    self.wait = Wait::kEnd;
    if (self.number == 0) {
        setcontext(&gExplorer);
    }
    trace("ends");
    schedule();
}

void runOnce(Search& search) {
    gRun = {};
    emptyHeap();
    forgetAccesses();
    gSearch = &search;
    gEvents.resize(search.kept());
    ++gSchedules;
    start("main", gScenario->body);
    gRun.running = &gRun.threads.front();
    gIsRunning = true;
    openStep(search.choose({choiceOf(0, Wake::kNormal)}, true));
    swapcontext(&gExplorer, &gRun.running->context);
    event().footprint->sort();
    expect(isFreedUntouched(), "memory was written to that was freed");
    gIsRunning = false;
}

/// What the threads came to, whatever the order in which they did.
std::uint64_t outcome() {
    std::uint64_t hash = 0;
    for (auto const& thread : gRun.threads) {
        hash = (hash + thread.heard) * 0x9E3779B97F4A7C15U;
    }
    return hash;
}

void prepare(Scenario const& scenario) {
    gScenario = &scenario;
    gSeen.clear();
    for (int const signal : {SIGSEGV, SIGBUS, SIGABRT}) {
        std::signal(signal, onSignal);
    }
}

/// Runs the scenario as the search will have it, and calls `afterRun` each time but after what was
/// seen in another order. Returns whether it came to its end.
bool walk(
    Search& search, std::uint64_t limit, std::function<void()> const& afterRun = [] {}) {
    for (std::uint64_t count = 0; count < limit; ++count) {
        runOnce(search);
        search.runEnded();
        if (!search.isRedundant()) {
            afterRun();
        }
        if (!search.advance()) {
            return true;
        }
    }
    return false;
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
    use(mutex);
    publish(gRun.published[mutex]);
    event().released = mutex;
}

void waitForSignal(void const* condition, void const* mutex, Nanoseconds deadline) {
    Unseen const unseen;
    giveUp(mutex);
    traceLock("waits for a signal, without lock ", mutex);
    Thread& self = *gRun.running;
    self.condition = condition;
    self.mutex = mutex;
    self.deadline = deadline;
    if (self.waits.empty()) {
        touch(waitsWord(self.number), true);
    }
    self.waits.push_back({self.clockRead, deadline, false});
    use(condition);
    touch(kClockWord, false);
    waitFor(Wait::kSignal);
}

void signal(void const* condition, bool all) {
    Unseen const unseen;
    expect(!isFreed(condition), "a condition is signalled that was freed");
    expect(locksHeld() == 1, "a condition is signalled without its lock");
    trace("signals");
    schedule();
    use(condition);
    for (auto& thread : gRun.threads) {
        if (thread.wait == Wait::kSignal && thread.condition == condition) {
            touch(kClockWord, false);
            thread.wait = Wait::kLock;
            thread.enabledBy = static_cast<int>(gRun.step);
            if (!all) {
                return;
            }
        }
    }
}

/// Notes that the step touches memory, of which each word has `like` for the bytes that are named.
void note(void const* memory, std::size_t size, bool isWrite, bool isPlain, Access const& like) {
    bool const isChecked = isLibrary(like.code);
    auto const begin = reinterpret_cast<std::uintptr_t>(memory);
    for (std::uintptr_t word = begin / 8 * 8; word < begin + size; word += 8) {
        std::uintptr_t const from = std::max(begin, word) - word;
        std::uintptr_t const to = std::min(begin + size, word + 8) - word;
        auto const bytes = static_cast<std::uint8_t>((0xFFU << from) & (0xFFU >> (8 - to)));
        if (isChecked) {
            expectNoRace(word, bytes, isWrite, isPlain);
        }
        if (gIsNoted) {
            Access access = like;
            access.word = word;
            access.reads &= bytes;
            access.writes &= bytes;
            access.counts &= bytes;
            event().footprint->accesses.push_back(access);
        }
    }
}

}  // namespace

bool isWatching() { return gIsWatching; }

Unseen::Unseen() : mWasWatching(std::exchange(gIsWatching, false)) {}
Unseen::~Unseen() { gIsWatching = mWasWatching; }

void noteInstrumented(void const* code) {
    (isLibrary(code) ? gIsLibraryInstrumented : gIsProgramInstrumented) = true;
}

void noteAccess(void const* memory, std::size_t size, bool isWrite, void const* code) {
    if (gIsWatching) {
        Unseen const unseen;
        Access access;
        (isWrite ? access.writes : access.reads) = 0xFF;
        access.code = code;
        note(memory, size, isWrite, true, access);
    }
}

void noteAtomic(AtomicAccess const& access) {
    if (!gIsWatching) {
        return;
    }
    Unseen const unseen;
    if (isLibrary(access.code)) {
        schedule();
    }
    Access like;
    like.code = access.code;
    if (access.references == nullptr) {
        like.reads = access.isRead ? 0xFF : 0;
        like.writes = access.isWrite ? 0xFF : 0;
    } else {
        auto const& [change, isPromoted] = *access.references;
        like.counts = 0xFF;
        like.isDropped = change < 0;
        like.isPromoted = isPromoted;
        bool const isLast = change < 0 && *static_cast<int const*>(access.memory) + change == 0;
        like.writes = isLast ? 0xFF : 0;
    }
    Clock& published = gRun.published[access.memory];
    if (access.isAcquire) {
        gRun.running->clock.join(published);
    }
    note(access.memory, access.size, access.isWrite, false, like);
    if (access.isWrite && !access.isRead) {
        published = {};
    }
    if (access.isRelease) {
        publish(published);
    }
}

std::uint64_t explore(Scenario const& scenario, std::optional<unsigned int> bound) {
    prepare(scenario);
    auto const before = gSchedules;
    Reduction reduction(gEvents);
    Bounded bounded(bound.value_or(0));
    expect(bound ? walk(bounded, kMaxBounded) : walk(reduction, kMaxSchedules), "too many orders");
    expect(bound || (gIsProgramInstrumented && gIsLibraryInstrumented),
           "what the steps depend on is not seen: code is not instrumented");
    for (auto const& fact : scenario.facts) {
        expect(gSeen.count(fact) != 0, "none of them shows that %s", fact.c_str());
    }
    return gSchedules - before;
}

void replay(Scenario const& scenario, std::string const& decisions) {
    prepare(scenario);
    gMode = Mode::kReplay;
    std::map<unsigned int, Choice> given;
    std::istringstream text(decisions);
    char colon = 0;
    for (unsigned int number = 0, choice = 0; text >> number >> colon >> choice;) {
        given[number] = static_cast<Choice>(choice);
    }
    Chosen search([&, count = 0U](std::vector<Choice> const& options) mutable {
        auto const found = given.find(options.size() > 1 ? ++count : 0);
        if (found == given.end()) {
            return options.front();
        }
        bool const isThere = std::count(options.begin(), options.end(), found->second) != 0;
        expect(isThere, "decision %u cannot be taken", count);
        return found->second;
    });
    runOnce(search);
}

std::uint64_t compare(Scenario const& scenario, unsigned int bound, std::uint64_t limit) {
    prepare(scenario);
    gMode = Mode::kCompare;
    std::set<std::uint64_t> traces;
    std::set<std::uint64_t> outcomes;
    Reduction reduction(gEvents);
    bool const isComplete = walk(reduction, kMaxSchedules, [&] {
        traces.insert(hashOf(gEvents));
        outcomes.insert(outcome());
    });
    std::uint64_t compared = 0;
    auto const check = [&] {
        ++compared;
        orderSteps(gEvents, 0, [](std::size_t, std::size_t) {});
        expect(!isComplete || traces.count(hashOf(gEvents)) != 0, "a plain search has a new order");
        expect(!isComplete || outcomes.count(outcome()) != 0, "a plain search has a new outcome");
    };
    Bounded bounded(bound);
    walk(bounded, limit, check);
    Chosen random([engine = std::mt19937_64(1)](std::vector<Choice> const& options) mutable {
        return options[engine() % options.size()];
    });
    walk(random, limit, check);
    std::printf("%s: %zu orders, %zu outcomes, %s\n", scenario.name.c_str(), traces.size(),
                outcomes.size(), isComplete ? "none new" : "too many to be compared");
    return compared;
}

void start(std::string name, std::function<void()> body) {
    Unseen const unseen;
    std::size_t const number = gRun.threads.size();
    expect(number < kMaxThreads, "too many threads");
    Thread& thread = gRun.threads.emplace_back();
    thread.name = std::move(name);
    thread.body = std::move(body);
    thread.number = number;
    if (gRun.running != nullptr) {
        thread.enabledBy = static_cast<int>(gRun.step);
        publish(thread.clock);
        touch(kThreadsWord, true);
    }
    getcontext(&thread.context);
    thread.context.uc_stack.ss_sp = gStacks.at(number).data();
    thread.context.uc_stack.ss_size = kStackSize;
    makecontext(&thread.context, runThread, 0);
}

void joinAll() {
    Unseen const unseen;
    gRun.running->isReady = [] {
        return std::all_of(gRun.threads.begin() + 1, gRun.threads.end(),
                           [](auto const& thread) { return thread.wait == Wait::kEnd; });
    };
    waitFor(Wait::kReady);
    for (auto const& thread : gRun.threads) {
        gRun.running->clock.join(thread.clock);
    }
    event().joinsAll = true;
}

void point(char const* format, ...) {
    Unseen const unseen;
    if (gMode == Mode::kReplay || gMode == Mode::kCompare) {
        std::va_list arguments;
        va_start(arguments, format);
        std::string const what = formatted(format, arguments);
        va_end(arguments);
        trace(what);
        hear(what);
    }
    schedule();
}

void waitUntil(std::function<bool()> isReady) {
    Unseen const unseen;
    gRun.running->isReady = std::move(isReady);
    waitFor(Wait::kReady);
}

void sleepUntil(Nanoseconds time) {
    Unseen const unseen;
    touch(kClockWord, false);
    gRun.running->deadline = time;
    waitFor(Wait::kTime);
}

Nanoseconds now() {
    touch(kClockWord, false);
    gRun.running->clockRead = gRun.now;
    return gRun.now;
}

Nanoseconds lastNow() { return gRun.running->clockRead; }

std::size_t threadNumber() { return gRun.running->number; }

std::size_t locksHeld() { return gRun.running->locksHeld; }

std::vector<SignalWait> const& waits() { return gRun.running->waits; }

bool hasWaited(std::size_t thread) {
    if (thread >= gRun.threads.size()) {
        return false;
    }
    touch(waitsWord(thread), false);
    return !gRun.threads[thread].waits.empty();
}

void expect(bool isTrue, char const* format, ...) {
    if (!isTrue) {
        Unseen const unseen;
        std::va_list arguments;
        va_start(arguments, format);
        std::string const what = formatted(format, arguments);
        va_end(arguments);
        breakRun(what);
    }
}

void seen(char const* fact) {
    Unseen const unseen;
    trace(std::string("so: ") + fact);
    hear(fact);
    gSeen.insert(fact);
}

}  // namespace interleave

// --- The functions that libraries synchronise themselves with, and their clock. The loader takes
// those of the program first. While no scenario runs there is one thread, and nothing to lock.

using interleave::expect;
using interleave::isFreed;
using interleave::Unseen;

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    if (interleave::gIsRunning) {
        Unseen const unseen;
        expect(!isFreed(mutex), "a lock is taken that was freed");
        expect(interleave::locksHeld() == 0, "a lock is taken while another is held");
        interleave::traceLock("takes lock ", mutex);
        interleave::gRun.running->mutex = mutex;
        interleave::waitFor(interleave::Wait::kLock);
    }
    return 0;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    if (interleave::gIsRunning) {
        Unseen const unseen;
        interleave::giveUp(mutex);
        interleave::traceLock("drops lock ", mutex);
        interleave::schedule();
    }
    return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    interleave::waitForSignal(condition, mutex,
                              std::numeric_limits<interleave::Nanoseconds>::max());
    return 0;
}

/// The result tells nothing that the clock does not: the caller asks it.
int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           timespec const* deadline) {
    expect(clock == CLOCK_MONOTONIC, "a wait on a clock that may be set");
    interleave::waitForSignal(condition, mutex,
                              deadline->tv_sec * 1'000'000'000 + deadline->tv_nsec);
    return 0;
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    interleave::signal(condition, false);
    return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    interleave::signal(condition, true);
    return 0;
}

}  // extern "C"

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    return time_point(nanoseconds(interleave::now()));
}
