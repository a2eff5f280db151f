#include <algorithm>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>

#include "Client.h"
#include "host/HostPlatform.h"

// 20 processes with 10 clients each use the service of this bus at once, and one is killed at
// random now and then. Fails when something is held at the end or the service's memory did not come
// back.
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kProcesses = 20;
constexpr int kClients = 10;

constexpr int kSeconds = 20;

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
    return run(arguments[0], std::getenv("TVHW_SERVICE_PID"));
}
