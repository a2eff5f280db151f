#include <algorithm>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>

#include "Client.h"
#include "host/HostPlatform.h"

// Many processes use the service at once, some of which are killed at any moment.
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kProcesses = 20;
constexpr int kClients = 10;

constexpr int kSeconds = 20;

constexpr char kUsage[] = R"(Usage: tvhw_service_load
Runs 20 processes with 10 clients each, which acquire, use, lose and release cores and ports
of the service on this bus for 20 seconds, and kills one at random now and then. Prints the
longest wait and the memory of the service, whose process id TVHW_SERVICE_PID gives. Exits
with 0 when nothing is held at the end and the memory came back, with 1 when not, and with 2
without that id.
)";

/// One process: each client on a thread of its own. Prints its longest wait in milliseconds.
int use(unsigned int seed, int seconds) {
    std::atomic<long> longest{0};
    std::atomic<int> failures{0};
    auto const end = Clock::now() + std::chrono::seconds(seconds);
    std::vector<std::thread> threads;
    for (int number = 0; number < kClients; ++number) {
        threads.emplace_back([&, number] {
            std::minstd_rand random(seed * 100 + static_cast<unsigned int>(number) + 1);
            while (Clock::now() < end) {
                Client client(random() % 8 == 0 ? "keep" : "give");
                auto const begin = Clock::now();
                int const codecType = random() % 4 == 0 ? TVHW_CRM_CODEC_TYPE_DISPLAY : 1;
                int const result = client.acquire(640, codecType);
                auto const waited =
                    std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
                longest = std::max<long>(longest, waited.count());
                failures += result != 0 && result != -16 ? 1 : 0;
                std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
                failures += TVHW_CRM_ClientReleaseResource(client.handle) == 0 ? 0 : 1;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::cout << longest << std::endl;
    return failures == 0 ? 0 : 1;
}

long residentKilobytes(std::string const& pid) {
    std::ifstream status("/proc/" + pid + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return 0;
}

int run(std::string const& self, std::string const& service) {
    std::minstd_rand random;
    std::vector<std::unique_ptr<Process>> processes;
    unsigned int started = 0;
    auto const start = [&](int rest) {
        return std::make_unique<Process>(std::vector<std::string>{
            self, "--use", std::to_string(++started), std::to_string(rest)});
    };
    for (int number = 0; number < kProcesses; ++number) {
        processes.push_back(start(kSeconds));
    }
    int killed = 0;
    long early = 0;
    for (int tenths = 0; tenths < kSeconds * 10 - 10; tenths += 5) {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        auto& victim = processes[random() % processes.size()];
        victim->end(SIGKILL);
        victim = start(std::max(kSeconds - tenths / 10 - 1, 1));
        ++killed;
        if (tenths == kSeconds * 10 / 4 / 5 * 5) {
            early = residentKilobytes(service);
        }
    }
    long longest = 0;
    int failed = 0;
    for (auto& process : processes) {
        std::string const line = process->line();
        longest = std::max(longest, line.empty() ? 0 : std::stol(line));
        failed += process->end() == 0 && !line.empty() ? 0 : 1;
    }
    long const late = residentKilobytes(service);
    std::string const status = kvo::host::describe();
    bool const isEmpty = status.find("\n0 clients are open.") != std::string::npos;
    std::cout << started << " processes, " << killed << " killed, " << failed
              << " failed; longest wait " << longest << " ms; memory of the service " << early
              << " kB early, " << late << " kB at the end\n";
    if (!isEmpty) {
        std::cout << status;
    }
    // What a process costs while it lives is gone; what is left is the allocator's slack.
    bool const isSteady = late <= early + early / 4 + 1024;
    return failed == 0 && isEmpty && isSteady ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
    if (count == 4 && std::string(arguments[1]) == "--use") {
        return use(static_cast<unsigned int>(std::atoi(arguments[2])), std::atoi(arguments[3]));
    }
    if (count == 2 && std::string(arguments[1]) == "--help") {
        std::cout << kUsage;
        return 0;
    }
    char const* const service = std::getenv("TVHW_SERVICE_PID");
    if (count != 1 || service == nullptr) {
        std::cerr
            << "tvhw_service_load: takes no arguments, and needs TVHW_SERVICE_PID; see --help\n";
        return 2;
    }
    return run(arguments[0], service);
}
