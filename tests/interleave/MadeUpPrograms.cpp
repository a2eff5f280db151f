#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>

#include "Platform.h"

namespace interleave {

namespace {

constexpr std::size_t kThreads = 3;

struct Shared {
    std::array<std::mutex, 2> mutexes;
    std::array<std::condition_variable, 2> conditions;
    std::array<int, 2> values{};  ///< Each under its mutex.
    std::atomic<int> number{0};
    std::array<std::shared_ptr<int>, kThreads> owners;
    std::weak_ptr<int> owned;
};

struct Step {
    unsigned int kind;
    std::size_t which;
    int amount;
};

/// Makes a step of a thread and returns what it came to.
int make(Step const& step, Shared& shared, std::size_t thread) {
    std::unique_lock<std::mutex> lock(shared.mutexes.at(step.which), std::defer_lock);
    auto& condition = shared.conditions.at(step.which);
    int& value = shared.values.at(step.which);
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(step.amount);
    if (step.kind < 4) {
        lock.lock();
    }
    switch (step.kind) {
        case 0:
        case 1:
            step.kind == 0 ? condition.notify_all() : condition.notify_one();
            return ++value;
        case 2:
            return condition.wait_until(lock, deadline, [&] { return value >= step.amount; });
        case 3:
            return condition.wait_until(lock, deadline) == std::cv_status::timeout ? -1 : value;
        case 4:
            sleepUntil(deadline.time_since_epoch() / std::chrono::nanoseconds(1));
            return 0;
        case 5:
            return shared.number.fetch_add(step.amount);
        case 6:
            shared.owners.at(thread).reset();
            [[fallthrough]];
        default:
            return shared.owned.lock() != nullptr ? 1 : 0;
    }
}

}  // namespace

Scenario madeUpProgram(unsigned int seed) {
    std::mt19937 random(seed);
    auto const below = [&](unsigned int end) { return static_cast<unsigned int>(random() % end); };
    std::array<std::vector<Step>, kThreads> program;
    for (auto& steps : program) {
        for (auto count = below(2) + 1; count != 0; --count) {
            steps.push_back({below(12) % 8, below(4) / 3, static_cast<int>(below(3)) + 1});
        }
    }
    return {"made up " + std::to_string(seed),
            [program] {
                Shared shared;
                shared.owners.fill(std::make_shared<int>(0));
                shared.owned = shared.owners[0];
                for (std::size_t thread = 0; thread < kThreads; ++thread) {
                    start("thread", [&, thread] {
                        for (Step const& step : program.at(thread)) {
                            point("step %u", step.kind);
                            point("came to %d", make(step, shared, thread));
                        }
                    });
                }
                joinAll();
            },
            {}};
}

}  // namespace interleave
