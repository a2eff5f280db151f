#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <random>

#include "Figures.h"
#include "host/HostPlatform.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"

namespace {

constexpr std::size_t kSizes[] = {1, 1000, 100000};
/// Also for the growth: where the objects fall in the caches by chance moves the figures of a size
/// by up to a fifth. A look-up of another order would grow by tens of times.
constexpr double kTarget = 1.3;
constexpr std::size_t kPicks = 1U << 17U;

constexpr char kMeasured[] = "OnReclaim";
constexpr char kFloor[] = "locked look-up, both promotions";

struct Owner final : ResourceClient::Reclaimable {
    bool reclaim() override { return true; }
};

/// As much of a resource client as a dispatch touches, in an object of the same size.
struct Target {
    explicit Target(std::shared_ptr<ResourceClient::Reclaimable> const& theOwner)
        : owner(theOwner) {}

    unsigned char others[sizeof(ResourceClient) - sizeof(std::weak_ptr<void>)] = {};
    std::weak_ptr<ResourceClient::Reclaimable> owner;
};
static_assert(sizeof(Target) == sizeof(ResourceClient));

/// A plain map from ids to weak references, and the least that leads from an id to an owner
/// that may be dying.
class Floor {
public:
    void add(unsigned int id, std::shared_ptr<Target> const& target) {
        mTargets.emplace(id, target);
    }

    int dispatch(unsigned int id) {
        auto const target = std::static_pointer_cast<Target>(promote(id));
        auto const owner = target == nullptr ? nullptr : target->owner.lock();
        return owner == nullptr || owner->reclaim() ? 1 : 0;
    }

private:
    std::shared_ptr<void> promote(unsigned int id) {
        std::lock_guard<std::mutex> const lock(mMutex);
        auto const target = mTargets.find(id);
        return target == mTargets.end() ? nullptr : target->second.lock();
    }

    std::mutex mMutex;
    std::map<unsigned int, std::weak_ptr<void>> mTargets;
};

/// Measures `look`, called with one pick after the other; each repetition goes on where the last
/// one ended, since its picks are in the caches.
template <typename Look>
void measure(std::string const& name, std::vector<unsigned int> const& picks, Look look) {
    measureCalls(name, [&picks, look, pick = std::size_t{0}](benchmark::State& state) mutable {
        for ([[maybe_unused]] auto const step : state) {
            benchmark::DoNotOptimize(look(picks[pick++ % kPicks]));
        }
    });
}

std::map<std::string, double> measureAmong(std::size_t size) {
    auto const owner = std::make_shared<Owner>();
    std::vector<std::shared_ptr<ResourceClient>> clients;
    std::vector<std::shared_ptr<Target>> targets;
    Floor floor;
    // Turn by turn, so that both lie in memory and in the caches alike.
    unsigned int firstId = 0;
    for (std::size_t index = 0; index < size; ++index) {
        clients.push_back(initializeResource(owner));
        if (index == 0) {
            firstId = static_cast<unsigned int>(kvo::host::crmClients().back().cookie);
        }
        targets.push_back(std::make_shared<Target>(owner));
        floor.add(firstId + static_cast<unsigned int>(index), targets.back());
    }
    std::vector<unsigned int> picks(kPicks);
    std::mt19937 random(1);
    for (unsigned int& pick : picks) {
        pick = firstId + static_cast<unsigned int>(random() % size);
    }

    measure(kMeasured, picks, [](unsigned int id) {
        return ResourceClient::OnReclaim(nullptr,
                                         reinterpret_cast<void*>(static_cast<std::uintptr_t>(id)));
    });
    measure(kFloor, picks, [&](unsigned int id) { return floor.dispatch(id); });
    return runMedians();
}

}  // namespace

Rows reclaimDispatch() {
    Rows rows;
    Rows growth;
    std::map<std::string, double> fewer;
    std::string fewerClients;
    for (std::size_t const size : kSizes) {
        std::fprintf(stderr, "Measuring OnReclaim among %zu clients...\n", size);
        auto const medians = measureAmong(size);
        double const measured = medians.at(kMeasured);
        std::string const clients = std::to_string(size);
        std::string const figure = "OnReclaim, clients: " + clients;
        rows.push_back({figure, kFloor, "ns", measured, medians.at(kFloor), kTarget});
        if (!fewer.empty()) {
            growth.push_back({"OnReclaim, growth " + fewerClients + " to " + clients, kFloor,
                              "times", measured / fewer.at(kMeasured),
                              medians.at(kFloor) / fewer.at(kFloor), kTarget});
        }
        fewer = medians;
        fewerClients = clients;
    }
    rows.insert(rows.end(), growth.begin(), growth.end());
    return rows;
}
