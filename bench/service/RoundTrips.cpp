#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <list>

#include "Report.h"
#include "service/BusNames.h"
#include "service/Client.h"

// What the resource manager costs as a service.
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kUsage[] =
    "Usage: tvhw_service_bench\n"
    "Measures an acquisition and release by the service on this bus: beside calls in which "
    "nothing\n"
    "is said or done, and with many clients open. Prints a table. Figures of which one misses its\n"
    "target are measured nine times, and the medians are printed; the exit status is 1 if one is\n"
    "missed then, 2 if there is no service.\n";

/// Measured at once, so that looking at the clock costs nothing.
constexpr int kCalls = 20;

/// Returns how many seconds `work` takes.
template <typename Work>
double secondsOf(Work const& work) {
    auto const begin = Clock::now();
    for (int call = 0; call < kCalls; ++call) {
        work();
    }
    return std::chrono::duration<double>(Clock::now() - begin).count() / kCalls;
}

void acquireAndRelease(Client& client) {
    if (client.acquire() != 0 || TVHW_CRM_ClientReleaseResource(client.handle) != 0) {
        std::fputs("tvhw_service_bench: there is no service that grants a core\n", stderr);
        std::exit(2);
    }
}

/// Beside a call of the service that its bus library answers, for each of the two.
Rows besideEmptyCalls() {
    std::fprintf(stderr, "Measuring calls of the service...\n");
    Client client;
    acquireAndRelease(client);
    auto const bus = sdbus::createSessionBusConnection();
    bus->enterEventLoopAsync();  // As the client library has it, for reclaims to get through.
    auto const service =
        sdbus::createProxy(*bus, kvo::service::kServiceName, kvo::service::kServicePath);
    measureEvents("service", 151,
                  [&client] { return secondsOf([&client] { acquireAndRelease(client); }); });
    measureEvents("floor", 151, [&service] {
        return secondsOf([&service] {
            service->callMethod("Ping").onInterface("org.freedesktop.DBus.Peer");
            service->callMethod("Ping").onInterface("org.freedesktop.DBus.Peer");
        });
    });
    auto const medians = runMedians();
    return {{"acquisition, release by the service", "two empty calls", "ns", medians.at("service"),
             medians.at("floor"), 1.5}};
}

Rows withManyClients() {
    std::fprintf(stderr, "Measuring with many clients...\n");
    std::list<Client> clients;
    for (std::size_t const count : {1U, 100U, 1000U}) {
        measureEvents(std::to_string(count), 51, [&clients, count] {
            clients.resize(count);
            auto const work = [&clients] { acquireAndRelease(clients.front()); };
            secondsOf(work);  // The processes settle after what many clients have just done.
            return secondsOf(work);
        });
    }
    auto const medians = runMedians();
    Rows rows;
    for (char const* const count : {"100", "1000"}) {
        rows.push_back({std::string("the same with ") + count + " clients", "with one", "ns",
                        medians.at(count), medians.at("1"), 1.3});
    }
    return rows;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return report(argc, argv, kUsage, {besideEmptyCalls, withManyClients});
    } catch (sdbus::Error const& error) {
        std::fprintf(stderr, "tvhw_service_bench: %s\n", error.what());
        return 2;
    }
}
