#include <sdbus-c++/sdbus-c++.h>
#include <sys/signalfd.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <string>
#include <thread>

#include "service/BusNames.h"
#include "service/daemon/Service.h"

namespace {

constexpr char kHelp[] =
    "Usage: tvhw-resource-manager [--status | --watch | --help]\n"
    "\n"
    "Hands out the codec cores and display ports of the host platform to all processes on the\n"
    "session bus that use its client library. Serves until it gets SIGINT or SIGTERM. The pool "
    "and\n"
    "the priorities of processes are those of KVO_HOST_POOL and KVO_HOST_POLICY.\n"
    "\n"
    "  --status  print who holds what, as the service that runs on this bus tells it\n"
    "  --watch   do that every second\n"
    "\n"
    "Exits with 0 when all is well, 1 when there is no bus, no service or already one, 2 when the\n"
    "option or a setting is wrong.\n";

int serve() {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    kvo::service::Service().run(signalfd(-1, &ends, SFD_CLOEXEC));
    return 0;
}

int printStatus(bool again) {
    auto const service = sdbus::createProxy(sdbus::createSessionBusConnection(),
                                            kvo::service::kServiceName, kvo::service::kServicePath);
    for (;;) {
        std::string status;
        service->callMethod("Status")
            .onInterface(kvo::service::kServiceInterface)
            .storeResultsTo(status);
        std::cout << (again ? "\033[H\033[2J" : "") << status << std::flush;
        if (!again) {
            return 0;
        }
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
}

}  // namespace

int main(int count, char** arguments) {
    std::string const option = count > 1 ? arguments[1] : "";
    if (count == 2 && option == "--help") {
        std::cout << kHelp;
        return 0;
    }
    try {
        if (count == 1) {
            return serve();
        }
        if (count == 2 && (option == "--status" || option == "--watch")) {
            return printStatus(option == "--watch");
        }
    } catch (sdbus::Error const& error) {
        std::cerr << "tvhw-resource-manager: " << error.getMessage() << "\n";
        return 1;
    }
    std::cerr << "tvhw-resource-manager: "
              << (count > 2 ? "takes one option" : "unknown option " + option) << "; see --help\n";
    return 2;
}
