#include "service/daemon/Service.h"

#include <poll.h>

#include <algorithm>
#include <iostream>
#include <utility>
#include <vector>

#include "host/Settings.h"
#include "service/BusNames.h"

namespace kvo::service {

using host::ResourcePool;

Service::Service()
    : mConnection(sdbus::createSessionBusConnection(kServiceName)),
      mObject(sdbus::createObject(*mConnection, kServicePath)),
      mPool(host::settings().pool) {
    registerOperations();
    watchForDeaths();
}

void Service::run(int end) {
    for (;;) {
        while (mConnection->processPendingRequest()) {
        }
        advance();
        auto const bus = mConnection->getEventLoopPollData();
        int timeout = bus.getPollTimeout();
        auto const next = mPool.nextDeadline();
        if (next != ResourcePool::Clock::time_point::max()) {
            auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
                next - ResourcePool::Clock::now());
            int const untilOverdue = static_cast<int>(std::max<long>(left.count() + 1, 0));
            timeout = timeout < 0 ? untilOverdue : std::min(timeout, untilOverdue);
        }
        pollfd entries[]{{bus.fd, bus.events, 0}, {end, POLLIN, 0}};
        poll(entries, 2, timeout);
        if (entries[1].revents != 0) {
            return;
        }
    }
}

void Service::registerOperations() {
    using Names = std::vector<std::string>;
    auto const method = [this](char const* name, Names const& in, Names const& out, auto handler) {
        mObject->registerMethod(name)
            .onInterface(kServiceInterface)
            .implementedAs(std::move(handler))
            .withInputParamNames(in)
            .withOutputParamNames(out);
    };
    method(
        "OpenClient", {"name", "above"}, {"code", "client", "service"},
        [this](std::string const& name, std::int32_t const& above) { return open(name, above); });
    method("CloseClient", {"client"}, {"code"},
           [this](std::int32_t const& client) { return close(client); });
    method("GiveBack", {"client"}, {"code"},
           [this](std::int32_t const& client) { return giveBack(client); });
    method("GetHolding", {"client"}, {"code", "coreType", "port", "maxWidth", "maxHeight"},
           [this](std::int32_t const& client) { return holding(client); });
    method(
        "Acquire",
        {"client", "display", "encoder", "codecType", "width", "height", "tryOnly",
         "insideReclaim"},
        {"code"},
        [this](Reply&& reply, std::int32_t const& client, bool const& display, bool const& encoder,
               std::int32_t const& codecType, std::int32_t const& width, std::int32_t const& height,
               bool const& tryOnly, std::int32_t const& insideReclaim) {
            acquire(std::move(reply), client, {display, encoder, codecType, width, height}, tryOnly,
                    insideReclaim);
        });
    method("AllowsForcedAcquire", {"pid"}, {"allows"},
           [](std::int32_t const& pid) { return host::settings().priorityOf(pid) >= 0; });
    method("Status", {}, {"text"}, [this] { return mPool.describe(); });
    for (auto const& [notice, signal] : {std::pair("NotifyReclaimed", "ProcessReclaimed"),
                                         std::pair("NotifyReleased", "ReclaimedClientReleased")}) {
        mObject->registerSignal(signal)
            .onInterface(kServiceInterface)
            .withParameters<std::int32_t>("pid");
        mObject->registerMethod(notice)
            .onInterface(kServiceInterface)
            .implementedAs([this, name = signal](std::int32_t const& pid) {
                mObject->emitSignal(name).onInterface(kServiceInterface).withArguments(pid);
            })
            .withInputParamNames("pid")
            .withNoReply();
    }
    mObject->finishRegistration();
}

/// The bus tells of every name that goes, however its process ended.
void Service::watchForDeaths() {
    mBusDaemon = sdbus::createProxy(*mConnection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    mBusDaemon->uponSignal("NameOwnerChanged")
        .onInterface("org.freedesktop.DBus")
        .call([this](std::string const& name, std::string const&, std::string const& newOwner) {
            if (newOwner.empty()) {
                forget(name);
            }
        });
    mBusDaemon->finishRegistration();
}

std::tuple<std::int32_t, std::int32_t, std::string> Service::open(std::string const& name,
                                                                  int above) {
    if (above > INT32_MAX / 2) {
        return {ResourcePool::kInvalid, 0, ""};
    }
    int const client = mPool.openClient(name, process(sender()).owner, above);
    mOwners[client] = sender();
    return {0, client, mConnection->getUniqueName()};
}

int Service::close(int client) {
    if (!isOwn(client)) {
        return ResourcePool::kInvalid;
    }
    mPool.closeClient(client);
    mOwners.erase(client);
    return 0;
}

int Service::giveBack(int client) {
    if (!isOwn(client)) {
        return ResourcePool::kInvalid;
    }
    mPool.giveBack(client);
    return 0;
}

Service::Holding Service::holding(int client) {
    if (!isOwn(client)) {
        return {ResourcePool::kInvalid, 0, 0, 0, 0};
    }
    auto const held = mPool.holding(client);
    if (held.core == nullptr) {
        return {held.port == 0 ? ResourcePool::kNothingHeld : 0, 0, held.port, 0, 0};
    }
    return {0, held.core->type, held.port, held.core->maxWidth, held.core->maxHeight};
}

void Service::acquire(Reply&& reply, int client, ResourcePool::Request const& request, bool tryOnly,
                      int insideReclaim) {
    if (!isOwn(client) || request.codecType < 0 || request.width < 0 || request.height < 0) {
        reply.returnResults(ResourcePool::kInvalid);
        return;
    }
    mReplies.emplace(mPool.request(client, request, tryOnly, insideReclaim), std::move(reply));
}

std::string Service::sender() const { return mObject->getCurrentlyProcessedMessage()->getSender(); }

bool Service::isOwn(int client) const {
    auto const owner = mOwners.find(client);
    return owner != mOwners.end() && owner->second == sender();
}

Service::Process& Service::process(std::string const& name) {
    auto const known = mProcesses.find(name);
    if (known != mProcesses.end()) {
        return known->second;
    }
    Process process;
    process.owner.pid = mObject->getCurrentlyProcessedMessage()->getCredsPid();
    process.owner.program = host::programOf(process.owner.pid);
    process.owner.priority = host::settings().priorityOf(process.owner.pid);
    process.proxy = sdbus::createProxy(*mConnection, name, kClientPath);
    return mProcesses.emplace(name, std::move(process)).first->second;
}

/// Gives back at once what a process held that has gone; nobody waits for its answers any longer.
void Service::forget(std::string const& name) {
    if (mProcesses.count(name) == 0) {
        return;
    }
    for (auto owner = mOwners.begin(); owner != mOwners.end();) {
        if (owner->second == name) {
            mPool.closeClient(owner->first);
            owner = mOwners.erase(owner);
        } else {
            ++owner;
        }
    }
    for (auto reclaim = mReclaims.begin(); reclaim != mReclaims.end();) {
        if (reclaim->second == name) {
            mPool.finishReclaim(reclaim->first, true);
            reclaim = mReclaims.erase(reclaim);
        } else {
            ++reclaim;
        }
    }
    mProcesses.erase(name);
}

void Service::askHolder(int reclaim, int holder) {
    std::string const& name = mOwners.at(holder);
    mReclaims[reclaim] = name;
    mProcesses.at(name)
        .proxy->callMethodAsync("Reclaim")
        .onInterface(kClientInterface)
        .withTimeout(kNoTimeout)
        .withArguments(holder, reclaim)
        .uponReplyInvoke([this, reclaim](sdbus::Error const* error, std::int32_t answer) {
            // A process that cannot be asked, though it lives, keeps what it has.
            mPool.finishReclaim(reclaim, error == nullptr && answer == 1);
            mReclaims.erase(reclaim);
        });
}

/// Does what the pool wants done.
void Service::advance() {
    for (auto const& step : mPool.advance()) {
        if (step.reclaim != 0) {
            askHolder(step.reclaim, step.holder);
            continue;
        }
        if (step.code == ResourcePool::kStuck) {
            std::cerr << "tvhw-resource-manager: no answer to a reclaim from "
                      << mPool.stuckClients()
                      << ", which keeps what it holds; a request is refused\n";
        }
        mReplies.extract(step.request).mapped().returnResults(step.code);
    }
}

}  // namespace kvo::service
