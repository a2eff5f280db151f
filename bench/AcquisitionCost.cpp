#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>

#include "Figures.h"
#include "service/Client.h"

namespace {

/// What a manager must do at least: note under its lock who has the core, and forget it.
class LeastManager {
public:
    __attribute__((noinline)) bool acquire(int core, int client) {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mHolders.emplace(core, client).second;
    }

    __attribute__((noinline)) bool release(int core) {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mHolders.erase(core) != 0;
    }

private:
    std::mutex mMutex;
    std::map<int, int> mHolders;
};

}  // namespace

Rows acquisitionCost() {
    std::fprintf(stderr, "Measuring the resource manager within the process...\n");
    Client client;
    if (client.acquire() != 0) {
        std::fprintf(stderr, "tvhw_bench: the pool has no decoder core\n");
        std::exit(2);
    }
    LeastManager least;
    measureCalls("manager", [&client](benchmark::State& state) {
        for ([[maybe_unused]] auto const turn : state) {
            benchmark::DoNotOptimize(client.acquire());
            benchmark::DoNotOptimize(TVHW_CRM_ClientReleaseResource(client.handle));
        }
    });
    measureCalls("floor", [&least](benchmark::State& state) {
        for ([[maybe_unused]] auto const turn : state) {
            benchmark::DoNotOptimize(least.acquire(1, 2));
            benchmark::DoNotOptimize(least.release(1));
        }
    });
    auto const medians = runMedians();
    // Both calls are counted by name, too, and the request is noted, and forgotten again.
    return {{"acquisition, release in process", "two locked map operations", "ns",
             medians.at("manager"), medians.at("floor"), 5}};
}
