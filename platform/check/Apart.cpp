// Checks in processes of their own.

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unwind.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "Check.h"

namespace kvo::check {

Lacking gLacking;

namespace {

constexpr std::chrono::seconds kPatience{25};  ///< With one call.

/// Calls are named by where their literals lie: both processes run the same program.
constexpr char kNoCall[] = "";
using Call = std::atomic<std::ptrdiff_t>;

std::ptrdiff_t placeOf(char const* call) { return call == nullptr ? 0 : call - kNoCall; }

std::string inCall(Call const& call) {
    std::ptrdiff_t const place = call;
    return place == 0 ? "" : std::string(" in ") + (kNoCall + place);
}

/// What the process of a check tells, in memory that is shared.
struct Report {
    Lacking lacking;
    Call ofMainThread{0};
    Call ofOtherThread{0};  ///< The last one.
    Call ofCrash{0};
    std::atomic<unsigned> calls{0};
    std::atomic<bool> isWhole{false};
    Outcome::Kind kind = Outcome::Kind::kFailed;
    std::array<char, 8000> came{};
};

Report* gReport = nullptr;
thread_local char const* tCall = nullptr;
thread_local bool tIsMain = false;

void setCall(char const* call) {
    tCall = call;
    ++gReport->calls;
    (tIsMain ? gReport->ofMainThread : gReport->ofOtherThread) = placeOf(call);
}

Report* sharedReport(int file) {
    void* const memory = mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<Report*>(memory);
}

bool gIsLoading = true;

/// Remembers the outermost library of the platform's on the stack, whose own code runs as it is
/// loaded.
_Unwind_Reason_Code noteLibrary(_Unwind_Context* context, void* library) {
    Dl_info info{};
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    if (dladdr(reinterpret_cast<void*>(_Unwind_GetIP(context)), &info) != 0 &&
        std::strstr(info.dli_fname, "/libkvo_") != nullptr) {
        *static_cast<char const**>(library) = info.dli_fname;
    }
    return _URC_NO_REASON;
}

/// Tells which library has ended the process as it was loaded, and by which signal, 0 being exit().
[[noreturn]] void endLoadingBy(int signal) {
    char const* library = "a library of the platform";
    _Unwind_Backtrace(noteLibrary, &library);
    std::string const how = signal == 0         ? "calls exit()"
                            : signal == SIGALRM ? "does not return"
                                                : "ends by signal " + std::to_string(signal);
    static_cast<void>(
        std::fprintf(stderr, "tvhw-platform-check: %s %s as it is loaded\n", library, how.c_str()));
    _exit(1);
}

void onCrash(int number) {
    if (gIsLoading) {
        endLoadingBy(number);
    }
    if (gReport != nullptr) {
        gReport->ofCrash = placeOf(tCall);
    }
    static_cast<void>(std::signal(number, SIG_DFL));
    static_cast<void>(std::raise(number));
}

/// The handler has a stack of its own, since the thread's may be what has run out.
void tellCrashes() {
    static std::array<char, 65536> stack;
    stack_t other{};
    other.ss_sp = stack.data();
    other.ss_size = stack.size();
    static_cast<void>(sigaltstack(&other, nullptr));
    struct sigaction action {};
    action.sa_handler = onCrash;
    action.sa_flags = SA_ONSTACK;
    for (int const number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGALRM}) {
        static_cast<void>(sigaction(number, &action, nullptr));
    }
    static_cast<void>(std::atexit([] {
        if (gIsLoading) {
            endLoadingBy(0);
        }
    }));
    alarm(static_cast<unsigned int>(kPatience.count()));
}

/// Before the platform's libraries are loaded, as far as a program can.
__attribute__((section(".preinit_array"), used)) void (*const gAtStart)() = tellCrashes;

/// Starts the program anew, so that what the platform's libraries do as they are loaded is done in
/// the process that uses them; where that cannot be, under an emulator, goes on as it is.
[[noreturn]] void becomeApart(Check const& check, int file) {
    std::array<char, 4096> program{};
    std::string number = std::to_string(file);
    std::string name = check.name;
    std::string option = kApartOption;
    if (readlink("/proc/self/exe", program.data(), program.size() - 1) > 0) {
        char* const arguments[] = {program.data(), option.data(), name.data(), number.data(),
                                   nullptr};
        execv(program.data(), arguments);
    }
    runHere(check, file);
}

/// Waits for a process. Returns whether it has ended, and not called the platform for too long.
bool hasEnded(pid_t process, Report const& report, int& status) {
    auto end = std::chrono::steady_clock::now() + kPatience;
    unsigned calls = 0;
    while (waitpid(process, &status, WNOHANG) == 0) {
        if (calls != report.calls) {
            calls = report.calls;
            end = std::chrono::steady_clock::now() + kPatience;
        } else if (std::chrono::steady_clock::now() > end) {
            kill(process, SIGKILL);
            waitpid(process, &status, 0);
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace

void endLoading() {
    gIsLoading = false;
    alarm(0);
}

InCall::InCall(char const* call) : mOuter(tCall) { setCall(call); }

InCall::~InCall() { setCall(mOuter); }

void runHere(Check const& check, int number) {
    gReport = sharedReport(number);
    if (gReport == nullptr) {
        _exit(2);
    }
    gLacking = gReport->lacking;
    tIsMain = true;
    Outcome const outcome = check.run();
    gReport->kind = outcome.kind;
    outcome.came.copy(gReport->came.data(), gReport->came.size() - 1);
    gReport->isWhole = true;
    _exit(0);  // What the platform does at exit is no part of the check.
}

Values usage() {
    std::ifstream file("/proc/self/stat");
    std::vector<std::string> words{std::istream_iterator<std::string>(file), {}};
    words.resize(24);
    auto const number = [&](std::size_t word) {
        return std::strtoll(words[word].c_str(), nullptr, 10);
    };
    int const next = memfd_create("next", 0);
    close(next);
    return {{"descriptors kept", next, 49},
            {"threads kept", number(19), 49},
            {"KB kept", number(23) * sysconf(_SC_PAGESIZE) / 1024, 6272}};
}

Values keptSince(Values const& before) {
    Values kept;
    int looks = 20;
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        kept = usage();
        for (std::size_t each = 0; each < kept.size(); ++each) {
            kept[each].came -= before[each].came;
            kept[each].expected = kept[each].came < kept[each].expected ? kept[each].came : 0;
        }
    } while (--looks > 0 && areRight(kept).kind != Outcome::Kind::kWell);
    return kept;
}

Outcome runApart(Check const& check) {
    int const file = memfd_create("check", 0);
    bool const isMade = file >= 0 && ftruncate(file, sizeof(Report)) == 0;
    Report* const report = isMade ? sharedReport(file) : nullptr;
    if (report == nullptr) {
        return outcome(false, "no memory to share");
    }
    new (report) Report;
    report->lacking = gLacking;
    pid_t const process = fork();
    if (process == 0) {
        becomeApart(check, file);
    }
    int status = 0;
    Outcome result;
    if (process < 0) {
        result.came = "no process of its own";
    } else if (!hasEnded(process, *report, status)) {
        result.came =
            "no answer in " + std::to_string(kPatience.count()) + " s" +
            inCall(report->ofMainThread != 0 ? report->ofMainThread : report->ofOtherThread);
    } else if (report->isWhole) {
        result = {report->kind, report->came.data()};
    } else {
        result.came = WIFSIGNALED(status)
                          ? "ended by signal " + std::to_string(WTERMSIG(status))
                          : "ended with code " + std::to_string(WEXITSTATUS(status));
        result.came += inCall(report->ofCrash != 0 ? report->ofCrash : report->ofMainThread);
    }
    munmap(report, sizeof(Report));
    close(file);
    return result;
}

}  // namespace kvo::check
