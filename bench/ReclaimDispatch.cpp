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
/// A tenth is left to the noise of four medians.
constexpr double kNoFaster = 1.1;
constexpr std::size_t kPicks = 1U << 17U;

constexpr char kMeasured[] = "OnReclaim";
constexpr char kMapFloor[] = "look-up in a map";
constexpr char kDispatchFloor[] = "the same, locked, with promotion";

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

    bool has(unsigned int id) const { return mTargets.find(id) != mTargets.end(); }

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
    Floor map;
    Floor dispatch;
    // Turn by turn, and one each, so that all three lie in memory and in the caches alike.
    unsigned int firstId = 0;
    for (std::size_t index = 0; index < size; ++index) {
        clients.push_back(initializeResource(owner));
        if (index == 0) {
            firstId = static_cast<unsigned int>(kvo::host::crmClients().back().cookie);
        }
        targets.push_back(std::make_shared<Target>(owner));
        map.add(firstId + static_cast<unsigned int>(index), targets.back());
        dispatch.add(firstId + static_cast<unsigned int>(index), targets.back());
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
    measure(kMapFloor, picks, [&](unsigned int id) { return map.has(id); });
    measure(kDispatchFloor, picks, [&](unsigned int id) { return dispatch.dispatch(id); });
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
        for (char const* const floor : {kMapFloor, kDispatchFloor}) {
            rows.push_back({figure, floor, "ns", measured, medians.at(floor), 1.3});
        }
        if (!fewer.empty()) {
            growth.push_back({"OnReclaim, growth " + fewerClients + " to " + clients, kMapFloor,
                              "times", measured / fewer.at(kMeasured),
                              medians.at(kMapFloor) / fewer.at(kMapFloor), kNoFaster});
        }
        fewer = medians;
        fewerClients = clients;
    }
    rows.insert(rows.end(), growth.begin(), growth.end());
    return rows;
}
