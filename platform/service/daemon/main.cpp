#include <fcntl.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <csignal>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/ResourcePool.h"
#include "host/Settings.h"
#include "service/BusNames.h"
#include "service/daemon/Service.h"

namespace {

using Words = std::vector<std::string>;

constexpr char kHelp[] = R"(Usage: tvhw-resource-manager [OPTION]

Hands out the codec cores and display ports of the host platform to all processes on the session bus
that use its client library. Serves until it gets SIGINT or SIGTERM.

  --settings FILE  serve with the pool and the policy of a file, read again on SIGHUP: lines of
                   KVO_HOST_POOL=..., KVO_HOST_POLICY=..., KVO_HOST_LEAST_HOLD=... and comments
                   with #. What it does not set is as the environment says.
  --check FILE     only look for mistakes in such a file

Of the service that runs on this bus:

  --status [--json] print who holds what, in tables or for a program
  --watch          do that every second
  --reclaim CLIENT ask a client, by its number, to give up what it holds, and wait 10 seconds for that
  --force CLIENT   take what a client holds without asking; it does not learn of that
  --log-level N    print failures (0), also holders that do not answer (1), refusals and reclaims (2),
                   grants (3), or nothing (-1). At first what KVO_MEDIA_LOG_LEVEL says.

  --version        print the version

Exits with 0 when all is well, 1 when there is no bus, no service, already one or no answer, a client
is not open or keeps what it holds or nothing can be printed, 2 when the option or a setting is wrong.
)";

/// Lets nobody who reads the log too slowly, or not at all, stop the service, and nothing else be
/// written to. Standard error is opened anew where that is possible, since others may share how it
/// is open now; but a file, which makes nobody wait, is not, so that its writers share one place.
void neverWaitForTheLog() {
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    for (int const standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(standard, F_GETFD) < 0) {
            open("/dev/null", O_RDWR);  // Takes its place.
        }
    }
    struct stat error {};
    if (fstat(STDERR_FILENO, &error) == 0 && !S_ISREG(error.st_mode)) {
        dup2(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC), STDERR_FILENO);
    }
    for (int const output : {STDERR_FILENO, kvo::host::settings().logOutput}) {
        fcntl(output, F_SETFL, fcntl(output, F_GETFL) | O_NONBLOCK);
    }
}

void serve(std::string const& settings) {
    neverWaitForTheLog();
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;  // One for each process.
    setrlimit(RLIMIT_NOFILE, &files);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGHUP);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    kvo::service::Service service(settings);  // A signal ends it while the bus does not answer.
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    service.run(signalfd(-1, &signals, SFD_CLOEXEC));
}

/// Calls the service that runs.
template <typename Result, typename... Arguments>
void ask(char const* operation, Result* result, Arguments const&... arguments) {
    static auto const service =
        sdbus::createProxy(sdbus::createSessionBusConnection(), kvo::service::kServiceName,
                           kvo::service::kServicePath);
    std::string const name = operation;
    auto call = service->callMethod(name);
    call.onInterface(kvo::service::kServiceInterface)
        .withTimeout(kvo::host::ResourcePool::kPatience)
        .withArguments(arguments...);
    if (result != nullptr) {
        call.storeResultsTo(*result);
    }
}

/// Throws when nobody can read it.
void print(std::string const& text) {
    if (!(std::cout << text << std::flush)) {
        throw std::runtime_error("the output cannot be written");
    }
}

void printStatus(char const* operation, bool again) {
    bool const clears = again && isatty(STDOUT_FILENO) != 0;
    do {
        std::string status;
        ask(operation, &status);
        print((clears ? "\033[H\033[2J" : "") + status);
    } while (again && sleep(1) == 0);
}

int number(std::string const& word, int least, int most) {
    int value = 0;
    auto const [end, failure] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (failure != std::errc() || *end != '\0' || value < least || value > most) {
        throw std::invalid_argument(word + " is no number from " + std::to_string(least) + " to " +
                                    std::to_string(most) + "; see --help");
    }
    return value;
}

void reclaim(std::string const& client, bool byForce) {
    std::int32_t code = 0;
    ask("Reclaim", &code, number(client, 1, INT32_MAX), byForce);
    if (code != 0) {
        bool const isKept = code != kvo::host::ResourcePool::kInvalid;
        throw std::runtime_error("client " + client +
                                 (isKept ? " keeps what it holds" : " is not open"));
    }
}

/// Says in a user's words what went wrong on the bus.
std::string reasonOf(sdbus::Error const& error) {
    std::string const& name = error.getName();
    auto const is = [&](char const* part) { return name.find(part) != std::string::npos; };
    return is("FileExists")                 ? "there is already a service on this bus"
           : is("ServiceUnknown")           ? "there is no service on this bus"
           : is("NoReply") || is("Timeout") ? "there was no answer for 10 seconds"
           : is("Disconnected")             ? "the bus has ended"
           : is("ENOTCONN")                 ? "the bus lets nobody in, or not this user"
           : is("FileNotFound") || is("ENOMEDIUM") || is("ECONNREFUSED")
               ? "there is no session bus; dbus-run-session starts one"
               : error.getMessage() + " (" + name + ")";
}

void run(Words const& words) {
    std::string const option = words.empty() ? "" : words[0];
    std::string const value = words.size() == 2 ? words[1] : "";
    bool const isAlone = words.size() == 1;
    if (words.empty() || (option == "--settings" && !value.empty())) {
        serve(value);
    } else if (option == "--check" && !value.empty()) {
        kvo::host::settingsWith(value);
    } else if ((option == "--reclaim" || option == "--force") && !value.empty()) {
        reclaim(value, option == "--force");
    } else if (option == "--log-level" && !value.empty()) {
        ask<int>("SetLogLevel", nullptr, number(value, -1, kvo::host::kCallLevel));
    } else if ((option == "--status" || option == "--watch") && isAlone) {
        printStatus("Status", option == "--watch");
    } else if (option == "--status" && value == "--json") {
        printStatus("StatusAsJson", false);
    } else if (option == "--help" && isAlone) {
        print(kHelp);
    } else if (option == "--version" && isAlone) {
        print("tvhw-resource-manager " TVHW_VERSION "\n");
    } else {
        throw std::invalid_argument("no such option, or not with these words: " + option +
                                    "; see --help");
    }
}

}  // namespace

int main(int count, char** arguments) {
    int status = 1;
    std::string reason;
    try {
        run(Words(arguments + 1, arguments + count));
        return 0;
    } catch (std::logic_error const& mistake) {
        status = 2;
        reason = mistake.what();
    } catch (sdbus::Error const& error) {
        reason = reasonOf(error);
    } catch (std::runtime_error const& failure) {
        reason = failure.what();
    }
    std::cerr << "tvhw-resource-manager: " << reason << "\n";
    return status;
}
