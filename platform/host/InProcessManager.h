#pragma once

#include <unistd.h>

#include <algorithm>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "host/HostPlatform.h"
#include "host/Misuse.h"
#include "host/ResourceManager.h"
#include "host/Settings.h"

namespace kvo::host {

/// The resource manager within the process: one pool for all of its clients. Never destroyed: a
/// holder may answer late.
class InProcessManager final : public ResourceManager {
public:
    /// A manager of these cores, for which a request may take so long.
    explicit InProcessManager(std::vector<CodecCore> const& cores = settings().pool,
                              ResourcePool::Clock::duration patience = ResourcePool::kPatience)
        : mPool(cores, &ResourcePool::Clock::now, patience) {}

    int open(std::string const& name, TVHW_CRM_RECLAIM_CALLBACK function, void* cookie,
             int& client) override {
        int const pid = getpid();
        std::lock_guard<std::mutex> const lock(mMutex);
        client = mPool.openClient(name, {pid, programOf(pid), 0});
        mCallbacks[client] = {function, cookie};
        return 0;
    }

    int close(int client) override {
        std::lock_guard<std::mutex> const lock(mMutex);
        mCallbacks.erase(client);
        bool const wasOpen = mPool.closeClient(client);
        advance();
        return wasOpen ? 0 : ResourcePool::kInvalid;
    }

    bool isOpen(int client) override {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mPool.isOpen(client);
    }

    int acquire(int client, ResourcePool::Request const& request, bool tryOnly) override {
        std::unique_lock<std::mutex> lock(mMutex);
        auto const number = mPool.request(client, request, tryOnly, tReclaim);
        auto answer = mAnswers[number].get_future();
        advance();
        for (;;) {
            // The next one of all, since nobody else may be awake for it. What comes up meanwhile
            // is later: whom this request waits for is slow or stuck within half the patience, and
            // who is asked from now on is so after that.
            auto const deadline = mPool.nextDeadline();
            lock.unlock();
            bool const isReady = answer.wait_until(deadline) == std::future_status::ready;
            int const result = isReady ? answer.get() : 0;
            lock.lock();
            if (isReady) {
                bool const isStopping =
                    result == ResourcePool::kStuck && !mPool.stuckClients().empty();
                lock.unlock();
                if (isStopping) {
                    tellMisuse(
                        "TVHW_CRM_ClientAcquireResource() was refused, since a codec is still "
                        "being stopped after 10 seconds",
                        kLetReleaseReturn);
                }
                return result;
            }
            advance();
        }
    }

    int describe(int client, TVHW_CRM_RESOURCE& resource) override {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (!mPool.isOpen(client)) {
            return ResourcePool::kInvalid;
        }
        auto const held = mPool.holding(client);
        if (held.core == nullptr && held.port == 0) {
            return ResourcePool::kNothingHeld;
        }
        CodecCore const core =
            held.core == nullptr ? CodecCore{0, false, 0, 0} : CodecCore{*held.core};
        resource = {};
        resource.core = mForced.core.value_or(core.type);
        resource.videoPort = mForced.videoPort.value_or(held.port);
        resource.maxWidth = mForced.maxWidth.value_or(core.maxWidth);
        resource.maxHeight = mForced.maxHeight.value_or(core.maxHeight);
        return 0;
    }

    int giveBack(int client) override {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (!mPool.isOpen(client)) {
            return ResourcePool::kInvalid;
        }
        mPool.giveBack(client);
        advance();
        return 0;
    }

    /// Reclaims from a client on the calling thread, without a request for what it holds.
    int reclaim(int client) {
        std::unique_lock<std::mutex> lock(mMutex);
        auto const callback = mCallbacks.find(client);
        if (callback == mCallbacks.end()) {
            return -1;
        }
        Callback const copy = callback->second;
        int const number = mPool.startReclaim(client);
        lock.unlock();
        return runReclaim(number, client, copy);
    }

    /// Reclaims from the client that holds a core and was opened first, if there is one.
    void reclaimFromHolder() {
        std::unique_lock<std::mutex> lock(mMutex);
        auto const& clients = mPool.clients();
        auto const holder = std::find_if(clients.begin(), clients.end(), [&](auto& entry) {
            return mPool.holding(entry.first).core != nullptr;
        });
        if (holder != clients.end()) {
            int const client = holder->first;
            lock.unlock();
            reclaim(client);
        }
    }

    // For setPool, forceGrant, crmClients and describe of HostPlatform.h, which tells of them.

    void setCores(std::vector<CodecCore> const& cores) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mPool.setCores(cores);
        advance();
    }

    void force(ForcedGrant grant) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mForced = grant;
    }

    std::vector<CrmClient> clients() {
        std::lock_guard<std::mutex> const lock(mMutex);
        std::vector<CrmClient> result;
        for (auto const& [client, entry] : mPool.clients()) {
            auto const held = mPool.holding(client);
            result.push_back({client, entry.name,
                              reinterpret_cast<std::uintptr_t>(mCallbacks.at(client).cookie),
                              held.core == nullptr ? 0 : held.core->type, held.port});
        }
        return result;
    }

    /// Says whether a client holds a port, counted from 0, or is told so.
    bool isPortHeld(int port) {
        std::lock_guard<std::mutex> const lock(mMutex);
        auto const& clients = mPool.clients();
        return mForced.videoPort || std::any_of(clients.begin(), clients.end(), [&](auto& entry) {
                   return mPool.holding(entry.first).port - 1 == port;
               });
    }

    std::string describePool() {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mPool.describe();
    }

private:
    struct Callback {
        TVHW_CRM_RECLAIM_CALLBACK function;
        void* cookie;
    };

    /// Does what the pool wants done after a change, with the lock held: answers who waits, and
    /// asks holders.
    void advance() {
        for (auto const& step : mPool.advance()) {
            if (step.reclaim == 0) {
                mAnswers.extract(step.request).mapped().set_value(step.code);
                continue;
            }
            std::thread([this, step, callback = mCallbacks.at(step.holder)] {
                runReclaim(step.reclaim, step.holder, callback);
            }).detach();
        }
    }

    /// Asks a client, on the calling thread and without the lock, and tells the pool its answer.
    /// The client may be closed by then.
    int runReclaim(int number, int client, Callback callback) {
        int const outer = std::exchange(tReclaim, number);
        int const answer = callReclaim(callback.function, client, callback.cookie);
        tReclaim = outer;
        std::lock_guard<std::mutex> const lock(mMutex);
        mPool.finishReclaim(number, answer == 1);
        advance();
        return answer;
    }

    std::mutex mMutex;
    ResourcePool mPool;
    ForcedGrant mForced;
    std::map<int, Callback> mCallbacks;  ///< By client.
    std::map<ResourcePool::Number, std::promise<int>> mAnswers;

    /// The reclaim whose callback runs on this thread; 0 for none.
    static inline thread_local int tReclaim = 0;
};

}  // namespace kvo::host
