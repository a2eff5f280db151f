#include "service/daemon/Service.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <utility>
#include <vector>

#include "host/LoggedCall.h"
#include "kvo_media_log.h"
#include "service/BusNames.h"

namespace kvo::service {

using host::ResourcePool;

namespace {

constexpr char kBusDaemon[] = "org.freedesktop.DBus";
constexpr std::size_t kLongestName = 256;
constexpr int kLinesPerSecond = 100;  ///< Of the log; a flood of refusals is no news.

/// What people read of a program, which may be named anything.
std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return text;
}

}  // namespace

Service::Service(std::string settings)
    : mSettingsFile(std::move(settings)),
      mConnection(sdbus::createSessionBusConnection(kServiceName)),
      mObject(sdbus::createObject(*mConnection, kServicePath)),
      mDeaths(epoll_create1(EPOLL_CLOEXEC), sdbus::adopt_fd),
      mPool({}) {
    readSettings();
    registerOperations();
    watchForDeaths();
}

void Service::readSettings() {
    mSettings = mSettingsFile.empty() ? host::settings() : host::settingsWith(mSettingsFile);
    mPool.setCores(mSettings.pool);
    mPool.setLeastHold(std::chrono::milliseconds(mSettings.leastHold));
    for (auto& [name, process] : mProcesses) {
        process.owner.priority = mSettings.priorityOf(process.owner.pid);
    }
    for (auto const& [client, name] : mOwners) {
        mPool.setPriority(client, mProcesses.at(name).owner.priority);
    }
}

void Service::run(int signals) {
    for (;;) {
        // No more at once than leave time for all else.
        for (int left = 100; left > 0 && mConnection->processPendingRequest(); --left) {
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
        pollfd entries[]{{bus.fd, bus.events, 0}, {signals, POLLIN, 0}, {mDeaths.get(), POLLIN, 0}};
        poll(entries, 3, timeout);
        if (entries[2].revents != 0) {
            forgetDead();
        }
        if (entries[1].revents != 0) {
            signalfd_siginfo signal{};
            if (read(signals, &signal, sizeof(signal)) != sizeof(signal) ||
                signal.ssi_signo != SIGHUP) {
                return;
            }
            try {
                readSettings();
            } catch (std::invalid_argument const& mistake) {
                log(0, "readSettings", std::string(mistake.what()) + "; the old settings stay");
            }
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
    method("CloseClient", {"client"}, {"code"}, [this](std::int32_t const& client) {
        bool const isDone = isOwn(client) && mOwners.erase(client) != 0;
        return isDone && mPool.closeClient(client) ? 0 : ResourcePool::kInvalid;
    });
    method("GiveBack", {"client"}, {"code"}, [this](std::int32_t const& client) {
        if (!isOwn(client)) {
            return ResourcePool::kInvalid;
        }
        mPool.giveBack(client);
        return 0;
    });
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
           [this](std::int32_t const& pid) { return mSettings.priorityOf(pid) >= 0; });
    method("Status", {}, {"text"}, [this] { return mPool.describe(); });
    method("StatusAsJson", {}, {"text"}, [this] { return mPool.describeAsJson(); });
    method("Reclaim", {"client", "byForce"}, {"code"},
           [this](Reply&& reply, std::int32_t const& client, bool const& byForce) {
               reclaim(std::move(reply), client, byForce);
           });
    method("SetLogLevel", {"level"}, {},
           [](std::int32_t const& level) { host::setLogLevel(level); });
    mObject->registerMethod("AnswerReclaim")
        .onInterface(kServiceInterface)
        .implementedAs([this](std::int32_t const& reclaim, std::int32_t const& answer) {
            answerReclaim(reclaim, answer);
        })
        .withInputParamNames("reclaim", "answer")
        .withNoReply();
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

/// The bus tells of every name that goes. A process also ends while a child of it has its name.
void Service::watchForDeaths() {
    mBusDaemon = sdbus::createProxy(*mConnection, kBusDaemon, "/org/freedesktop/DBus");
    mBusDaemon->uponSignal("NameOwnerChanged")
        .onInterface(kBusDaemon)
        .call([this](std::string const& name, std::string const&, std::string const& newOwner) {
            // Anybody on the bus can send what looks like it.
            if (newOwner.empty() &&
                mBusDaemon->getCurrentlyProcessedMessage()->getSender() == kBusDaemon) {
                forget(name);
            }
        });
    mBusDaemon->finishRegistration();
}

std::tuple<std::int32_t, std::int32_t, std::string> Service::open(std::string const& name,
                                                                  int above) {
    Process const* const owner = name.size() > kLongestName ? nullptr : process(sender());
    if (owner == nullptr) {
        return {ResourcePool::kInvalid, 0, ""};
    }
    int const client = mPool.openClient(name, owner->owner, above);
    mOwners[client] = sender();
    return {0, client, mConnection->getUniqueName()};
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

void Service::reclaim(Reply&& reply, int client, bool byForce) {
    if (!mPool.isOpen(client)) {
        reply.returnResults(ResourcePool::kInvalid);
    } else if (byForce) {
        log(1, "reclaim", mPool.nameOf(client) + " loses by force what it holds");
        mPool.giveBack(client);
        reply.returnResults(0);
    } else {
        askHolder(mPool.startReclaim(client), client, std::move(reply));
    }
}

void Service::answerReclaim(int reclaim, int answer) {
    auto const asked = mReclaims.find(reclaim);
    if (asked != mReclaims.end() && asked->second.name == sender()) {
        endReclaim(reclaim, answer == 1);
    }
}

std::string Service::sender() const { return mObject->getCurrentlyProcessedMessage()->getSender(); }

bool Service::isOwn(int client) const {
    auto const owner = mOwners.find(client);
    return owner != mOwners.end() && owner->second == sender();
}

/// Returns a process of the bus; null when it has ended.
Service::Process* Service::process(std::string const& name) {
    auto const known = mProcesses.find(name);
    if (known != mProcesses.end()) {
        return &known->second;
    }
    Process process;
    process.owner.pid = mObject->getCurrentlyProcessedMessage()->getCredsPid();
    process.owner.program = printable(host::programOf(process.owner.pid));
    process.owner.priority = mSettings.priorityOf(process.owner.pid);
    process.proxy = sdbus::createProxy(*mConnection, name, kClientPath);
    process.death = sdbus::UnixFd(static_cast<int>(syscall(SYS_pidfd_open, process.owner.pid, 0)),
                                  sdbus::adopt_fd);
    epoll_event event{EPOLLIN, {}};
    event.data.fd = process.death.get();
    if (epoll_ctl(mDeaths.get(), EPOLL_CTL_ADD, event.data.fd, &event) != 0) {
        return nullptr;
    }
    return &mProcesses.emplace(name, std::move(process)).first->second;
}

void Service::forgetDead() {
    epoll_event event{};
    while (epoll_wait(mDeaths.get(), &event, 1, 0) == 1) {
        auto const dead = std::find_if(
            mProcesses.begin(), mProcesses.end(),
            [&](auto const& entry) { return entry.second.death.get() == event.data.fd; });
        forget(std::string(dead->first));
    }
}

/// Gives back at once what a process held that has gone; nobody waits for its answers any longer.
void Service::forget(std::string const& name) {
    if (mProcesses.count(name) == 0) {
        return;
    }
    std::vector<int> asked;
    for (auto const& [reclaim, entry] : mReclaims) {
        if (entry.name == name) {
            asked.push_back(reclaim);
        }
    }
    for (int const reclaim : asked) {
        endReclaim(reclaim, true);
    }
    for (auto owner = mOwners.begin(); owner != mOwners.end();) {
        if (owner->second == name) {
            mPool.closeClient(owner->first);
            owner = mOwners.erase(owner);
        } else {
            ++owner;
        }
    }
    mProcesses.erase(name);
}

void Service::endReclaim(int reclaim, bool gaveUp) {
    auto const ended = mReclaims.extract(reclaim);
    log(2, "reclaim", mPool.describeReclaim(reclaim) + (gaveUp ? " gives up" : " keeps it"));
    mPool.finishReclaim(reclaim, gaveUp);
    if (ended.mapped().reply) {
        ended.mapped().reply->returnResults(gaveUp ? 0 : ResourcePool::kBusy);
    }
}

/// Asks without a reply of the bus, which anybody could forge: the answer is a call.
void Service::askHolder(int reclaim, int holder, std::optional<Reply> reply) {
    std::string const& name = mOwners.at(holder);
    mProcesses.at(name)
        .proxy->callMethod("Reclaim")
        .onInterface(kClientInterface)
        .withArguments(holder, reclaim)
        .dontExpectReply();
    mReclaims.emplace(reclaim, Asked{name, std::move(reply)});
}

/// Does what the pool wants done.
void Service::advance() {
    for (auto const& step : mPool.advance()) {
        bool const isRefused = step.reclaim == 0 && step.code != 0;
        log(step.code == ResourcePool::kStuck ? 1
            : isRefused || step.reclaim != 0  ? 2
                                              : 3,
            step.reclaim != 0 ? "reclaim"
            : isRefused       ? "refuse"
                              : "grant",
            mPool.describe(step));
        if (step.reclaim != 0) {
            askHolder(step.reclaim, step.holder);
        } else {
            mReplies.extract(step.request).mapped().returnResults(step.code);
        }
    }
}

/// Writes a line of the library's form, unless there are too many.
void Service::log(int level, char const* operation, std::string const& text) {
    if (level > host::highestPrintedLevel) {
        return;
    }
    auto const write = [&](std::string const& message) {
        kvo_media_log_printf(level, "ResourceManager", "daemon/Service.cpp", operation, __LINE__,
                             "%s", message.c_str());
    };
    auto const second = std::chrono::duration_cast<std::chrono::seconds>(
        ResourcePool::Clock::now().time_since_epoch());
    if (std::exchange(mLogSecond, second) != second) {
        int const left = std::exchange(mLinesInSecond, 0) - kLinesPerSecond;
        if (left > 0) {
            write(std::to_string(left) + " lines were left out");
        }
    }
    if (++mLinesInSecond <= kLinesPerSecond) {
        write(text);
    }
}

}  // namespace kvo::service
