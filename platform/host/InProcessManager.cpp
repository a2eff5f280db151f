// The resource manager within the process: one pool for all of its clients.

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "host/Forever.h"
#include "host/HostPlatform.h"
#include "host/Misuse.h"
#include "host/PlatformCall.h"
#include "host/ReclaimAtCall.h"
#include "host/ResourceManager.h"
#include "host/Settings.h"

namespace kvo::host {

namespace {

/// The reclaim whose callback runs on this thread; 0 for none.
thread_local int tReclaim = 0;

class InProcessManager final : public ResourceManager {
public:
    InProcessManager() = default;

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
        Waiter waiter;
        mWaiters[number] = &waiter;
        advance();
        while (!waiter.code) {
            // The oldest watches the clock for all.
            if (mWaiters.begin()->second != &waiter) {
                waiter.changed.wait(lock);
            } else if (waiter.changed.wait_until(lock, mPool.nextDeadline()) ==
                       std::cv_status::timeout) {
                advance();
            }
        }
        return *waiter.code;
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

    /// A thread that waits for the answer to its request.
    struct Waiter {
        std::condition_variable changed;
        std::optional<int> code;
    };

    /// Does what the pool wants done after a change, with the lock held: answers who waits, and
    /// asks holders.
    void advance() {
        for (auto const& step : mPool.advance()) {
            if (step.reclaim != 0) {
                std::thread([this, step, callback = mCallbacks.at(step.holder)] {
                    runReclaim(step.reclaim, step.holder, callback);
                }).detach();
                continue;
            }
            Waiter* const waiter = mWaiters.at(step.request);
            mWaiters.erase(step.request);
            waiter->code = step.code;
            waiter->changed.notify_one();
        }
        if (!mWaiters.empty()) {
            mWaiters.begin()->second->changed.notify_one();  // There may be a new deadline.
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
    ResourcePool mPool{settings().pool};
    ForcedGrant mForced;
    std::map<int, Callback> mCallbacks;  ///< By client.
    std::map<ResourcePool::Number, Waiter*> mWaiters;
};

InProcessManager& manager() { return forever<InProcessManager>(); }

OnReset const gOnReset([] {
    manager().setCores(settings().pool);
    manager().force({});
});

[[maybe_unused]] bool const gIsRegistered = [] {
    setReclaimer([] { manager().reclaimFromHolder(); });
    setPortRegister([](int port) { return manager().isPortHeld(port); });
    return true;
}();

}  // namespace

ResourceManager& resourceManager() { return manager(); }

void setPool(std::vector<CodecCore> const& cores) { manager().setCores(cores); }

void forceGrant(ForcedGrant grant) { manager().force(grant); }

std::vector<CrmClient> crmClients() { return manager().clients(); }

std::string describe() { return manager().describePool(); }

std::future<int> reclaim(int uniqueId) {
    return std::async(std::launch::async, [uniqueId] { return manager().reclaim(uniqueId); });
}

}  // namespace kvo::host
