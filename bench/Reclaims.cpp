#include <chrono>
#include <map>
#include <mutex>
#include <random>

#include "Codecs.h"
#include "Subject.h"
#include "host/HostPlatform.h"
#include "kvo_media_log.h"
#include "tvhw/ResourceClient.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;
constexpr int kLookUps = 1000;

struct Owner final : ResourceClient::Reclaimable {
    bool reclaim() override { return true; }
};

/// As much of a resource client as a reclaim touches on its way to the owner.
struct Target {
    std::weak_ptr<ResourceClient::Reclaimable> owner;
};

/// The least that leads from a number to an owner that may be dying: a locked ordered map of weak
/// references.
struct Registry {
    std::shared_ptr<Target> find(unsigned int id) {
        std::lock_guard<std::mutex> const lock(mutex);
        auto const found = targets.find(id);
        return found == targets.end() ? nullptr : found->second.lock();
    }

    std::mutex mutex;
    std::map<unsigned int, std::weak_ptr<Target>> targets;
};

int reclaimById(unsigned int id) {
    return ResourceClient::OnReclaim(nullptr,
                                     reinterpret_cast<void*>(static_cast<std::uintptr_t>(id)));
}

/// The id of the last client that was opened.
unsigned int lastId() { return static_cast<unsigned int>(kvo::host::crmClients().back().cookie); }

Subject findOwner(std::size_t clients, double limit) {
    struct World {
        std::shared_ptr<Owner> owner = std::make_shared<Owner>();
        std::vector<std::shared_ptr<ResourceClient>> clients;
        std::vector<std::shared_ptr<Target>> targets;
        Registry registry;
        std::vector<unsigned int> picks;
    };
    auto const world = std::make_shared<World>();
    for (std::size_t index = 0; index < clients; ++index) {
        world->clients.push_back(initializeResource(world->owner));
    }
    unsigned int const last = lastId();
    std::mt19937 random(1);
    for (std::size_t index = 0; index < clients; ++index) {
        world->targets.push_back(std::make_shared<Target>(Target{world->owner}));
        world->registry.targets.emplace(last - static_cast<unsigned int>(index),
                                        world->targets.back());
    }
    for (int pick = 0; pick < kLookUps; ++pick) {
        world->picks.push_back(last - static_cast<unsigned int>(random() % clients));
    }
    auto const measured = [world] {
        for (unsigned int const id : world->picks) {
            keep(reclaimById(id));
        }
    };
    auto const least = [world] {
        for (unsigned int const id : world->picks) {
            auto const target = world->registry.find(id);
            auto const owner = target == nullptr ? nullptr : target->owner.lock();
            keep(owner == nullptr || owner->reclaim());
        }
    };
    return {"OnReclaim finds its owner among " + std::to_string(clients),
            "a locked ordered map, both strong references",
            {measured},
            {least},
            kLookUps,
            limit};
}

/// A reclaim of a decoder that nobody calls meanwhile, from the manager's call to its answer.
Subject stopCodec() {
    struct World {
        std::shared_ptr<IdleDecoder> codec = std::make_shared<IdleDecoder>();
        std::shared_ptr<VideoDecoderClientWrapperResource> wrapper;
        unsigned int id = 0;
        std::shared_ptr<Owner> owner = std::make_shared<Owner>();
        std::shared_ptr<Target> target = std::make_shared<Target>(Target{owner});
        Registry registry;
        std::mutex guard;
    };
    auto const world = std::make_shared<World>();
    world->registry.targets.emplace(1, world->target);
    auto const prepare = [world] {
        world->wrapper = std::make_shared<VideoDecoderClientWrapperResource>(world->codec);
        world->wrapper->configureReferenceMode(CodecType::AVC, {});
        world->id = lastId();
    };
    auto const least = [world] {
        auto const target = world->registry.find(1);
        auto const owner = target->owner.lock();
        std::shared_ptr<IdleDecoder> const codec = std::weak_ptr<IdleDecoder>(world->codec).lock();
        kvo_media_log_printf(2, "bench", __FILE__, __func__, __LINE__, "start %d", 0);
        {
            std::lock_guard<std::mutex> const close(world->guard);
            keep(std::chrono::steady_clock::now() + std::chrono::seconds(3));
        }
        codec->release();
        { std::lock_guard<std::mutex> const mark(world->guard); }
        kvo_media_log_printf(2, "bench", __FILE__, __func__, __LINE__, "end");
    };
    return {"a whole reclaim, nobody inside the codec",
            "find, hold, log, close, clock, release(), mark, log",
            {[world] { keep(reclaimById(world->id)); }, prepare},
            {least, prepare},
            1,
            1.4};
}

}  // namespace

Subjects wholeReclaim() { return {stopCodec()}; }
Subjects reclaimOfOne() { return {findOwner(1, 1.35)}; }
Subjects reclaimOfThousand() { return {findOwner(1000, 1.25)}; }
Subjects reclaimOfHundredThousand() { return {findOwner(100000, 1.2)}; }
