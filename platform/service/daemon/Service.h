#pragma once

#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

#include "host/LoggedCall.h"
#include "host/ResourcePool.h"
#include "host/Settings.h"
#include "kvo_media_log.h"
#include "service/BusNames.h"

namespace kvo::service {

using host::ResourcePool;
using std::chrono::duration_cast;

constexpr std::size_t kLongestName = 256;
constexpr int kLinesPerSecond = 100;       ///< Of the log; a flood of refusals is no news.
constexpr long kLongestSleep = 3'600'000;  ///< Milliseconds.

/// The resource manager for all processes on a bus: answers their calls out of one pool and asks
/// holders to give up. Runs on one thread.
class Service {
public:
    /// Takes the service's name on the bus. Pool and policy are those of the environment, unless
    /// the file `settings`, if that is not empty, says otherwise. Throws sdbus::Error when the name
    /// is taken or there is no bus, std::invalid_argument for a mistake in the file.
    explicit Service(std::string settings)
        : mSettingsFile(std::move(settings)),
          mDeaths(epoll_create1(EPOLL_CLOEXEC), sdbus::adopt_fd),
          mConnection(sdbus::createSessionBusConnection()),
          mObject(sdbus::createObject(*mConnection, kServicePath)),
          mPool({}) {
        readSettings();
        registerOperations();
        watchForDeaths();
        mConnection->requestName(kServiceName);  // Who waits for it may call.
    }

    /// Serves until a signal other than SIGHUP can be read from `signals`, a signalfd; at SIGHUP
    /// reads the settings anew, and keeps the old ones when there is a mistake in them. Throws
    /// sdbus::Error when the bus is lost.
    void run(int signals) {
        for (;;) {
            // One message at a time, so that a flood of them leaves time for all else.
            bool const isIdle = !mConnection->processPendingRequest();
            advance();
            auto const bus = isIdle ? mConnection->getEventLoopPollData()
                                    : sdbus::IConnection::PollData{-1, 0, 0};
            auto const left = duration_cast<std::chrono::milliseconds>(mPool.nextDeadline() -
                                                                       ResourcePool::Clock::now());
            int const untilDue = static_cast<int>(std::clamp(left.count() + 1, 0L, kLongestSleep));
            pollfd entries[]{
                {bus.fd, bus.events, 0}, {signals, POLLIN, 0}, {mDeaths.get(), POLLIN, 0}};
            poll(entries, 3, isIdle ? untilDue : 0);
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

private:
    /// A process that has opened clients, known by its unique name on the bus.
    struct Process {
        ResourcePool::Owner owner;
        sdbus::UnixFd death;  ///< Readable once it has ended, whoever has its name then.
    };
    using Reply = sdbus::Result<std::int32_t>;
    /// A reclaim in flight: from whom, and who wants to know what comes of it beside a request.
    struct Asked {
        int client;
        std::string name;
        std::vector<Reply> replies;
    };
    /// Code, type of core, port, width and height of the core.
    using Holding = std::tuple<int, int, int, int, int>;

    void readSettings() {
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

    void registerOperations() {
        auto const method = [this](char const* name, auto handler) {
            mObject->registerMethod(name)
                .onInterface(kServiceInterface)
                .implementedAs(std::move(handler));
        };
        method("OpenClient",
               [this](std::string const& name, int above) { return open(name, above); });
        method("CloseClient", [this](int client) {
            bool const isDone = isOwn(client) && mOwners.erase(client) != 0;
            return isDone && mPool.closeClient(client) ? 0 : ResourcePool::kInvalid;
        });
        method("GiveBack", [this](int client) {
            if (!isOwn(client)) {
                return ResourcePool::kInvalid;
            }
            mPool.giveBack(client);
            return 0;
        });
        method("GetHolding", [this](int client) { return holding(client); });
        method(
            "Acquire", [this](Reply&& reply, int client, bool display, bool encoder, int codecType,
                              int width, int height, bool tryOnly, int insideReclaim) {
                if (!isOwn(client)) {
                    return reply.returnResults(ResourcePool::kInvalid);
                }
                int const inside = isAsked(insideReclaim) ? insideReclaim : 0;
                mReplies.emplace(mPool.request(client, {display, encoder, codecType, width, height},
                                               tryOnly, inside),
                                 std::move(reply));
            });
        method("AllowsForcedAcquire", [this](int pid) { return mSettings.priorityOf(pid) >= 0; });
        method("Status", [this] { return mPool.describe(); });
        method("StatusAsJson", [this] { return mPool.describeAsJson(); });
        method("Reclaim", [this](Reply&& reply, int client, bool byForce) {
            reclaim(std::move(reply), client, byForce);
        });
        method("SetLogLevel", [](int level) { host::setLogLevel(level); });
        method("AnswerReclaim", [this](int reclaim, int answer) {
            if (isAsked(reclaim)) {
                endReclaim(reclaim, answer == 1);
            }
        });
        mObject->finishRegistration();
    }

    /// The bus tells of every name that goes, or comes, which is not known then. A process also
    /// ends while a child of it has its name.
    void watchForDeaths() {
        mBusDaemon = sdbus::createProxy(*mConnection, kBusDaemon, kBusDaemonPath);
        mBusDaemon->uponSignal("NameOwnerChanged")
            .onInterface(kBusDaemon)
            .call([this](std::string const& name, std::string const&, std::string const&) {
                // Anybody on the bus can send what looks like it.
                if (mBusDaemon->getCurrentlyProcessedMessage()->getSender() == kBusDaemon) {
                    forget(name);
                }
            });
        mBusDaemon->finishRegistration();
    }

    std::tuple<int, int> open(std::string const& name, int above) {
        Process const* const owner = name.size() > kLongestName ? nullptr : process(sender());
        if (owner == nullptr) {
            return {ResourcePool::kInvalid, 0};
        }
        int const client = mPool.openClient(name, owner->owner, above);
        mOwners[client] = sender();
        return {0, client};
    }

    [[nodiscard]] Holding holding(int client) const {
        if (!isOwn(client)) {
            return {ResourcePool::kInvalid, 0, 0, 0, 0};
        }
        auto const held = mPool.holding(client);
        if (held.core == nullptr) {
            return {held.port == 0 ? ResourcePool::kNothingHeld : 0, 0, held.port, 0, 0};
        }
        return {0, held.core->type, held.port, held.core->maxWidth, held.core->maxHeight};
    }

    /// For a person at the keyboard; of several who ask a client, all get its one answer.
    void reclaim(Reply&& reply, int client, bool byForce) {
        if (!mPool.isOpen(client)) {
            return reply.returnResults(ResourcePool::kInvalid);
        }
        if (byForce) {
            log(1, "reclaim", mPool.nameOf(client) + " loses by force what it holds");
            mPool.giveBack(client);
            return reply.returnResults(0);
        }
        auto const asked = std::find_if(mReclaims.begin(), mReclaims.end(), [&](auto const& entry) {
            return entry.second.client == client;
        });
        if (asked != mReclaims.end()) {
            return asked->second.replies.push_back(std::move(reply));
        }
        log(2, "reclaim", mPool.nameOf(client) + " is asked for all that it holds");
        askHolder(mPool.startReclaim(client), client).replies.push_back(std::move(reply));
    }

    [[nodiscard]] std::string sender() const {
        return mObject->getCurrentlyProcessedMessage()->getSender();
    }

    [[nodiscard]] bool isOwn(int client) const {
        auto const owner = mOwners.find(client);
        return owner != mOwners.end() && owner->second == sender();
    }

    [[nodiscard]] bool isAsked(int reclaim) const {
        auto const asked = mReclaims.find(reclaim);
        return asked != mReclaims.end() && asked->second.name == sender();
    }

    /// Returns a process of the bus; null when it has ended. The end of one that cannot be watched,
    /// for want of descriptors, say, is that of its name.
    Process* process(std::string const& name) {
        auto const known = mProcesses.find(name);
        if (known != mProcesses.end()) {
            return &known->second;
        }
        int const pid = mObject->getCurrentlyProcessedMessage()->getCredsPid();
        epoll_event event{EPOLLIN, {}};
        event.data.fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
        if (event.data.fd < 0 && errno == ESRCH) {
            return nullptr;
        }
        epoll_ctl(mDeaths.get(), EPOLL_CTL_ADD, event.data.fd, &event);
        std::string program = host::programOf(pid);  // May be anything, and people read it.
        std::replace_if(
            program.begin(), program.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
        Process process{{pid, program, mSettings.priorityOf(pid)},
                        sdbus::UnixFd(event.data.fd, sdbus::adopt_fd)};
        return &mProcesses.emplace(name, std::move(process)).first->second;
    }

    void forgetDead() {
        epoll_event event{};
        while (epoll_wait(mDeaths.get(), &event, 1, 0) == 1) {
            auto const dead = std::find_if(
                mProcesses.begin(), mProcesses.end(),
                [&](auto const& entry) { return entry.second.death.get() == event.data.fd; });
            forget(std::string(dead->first));
        }
    }

    /// Gives back at once what a process held that has gone; nobody waits for its answers longer.
    void forget(std::string const& name) {
        if (mProcesses.erase(name) == 0) {
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
    }

    void endReclaim(int reclaim, bool gaveUp) {
        auto const ended = mReclaims.extract(reclaim);
        log(2, "reclaim", mPool.describeReclaim(reclaim) + (gaveUp ? " gives up" : " keeps it"));
        mPool.finishReclaim(reclaim, gaveUp);
        for (Reply const& reply : ended.mapped().replies) {
            reply.returnResults(gaveUp ? 0 : ResourcePool::kBusy);
        }
    }

    /// Asks without a reply of the bus, which anybody could forge: the answer is a call.
    Asked& askHolder(int reclaim, int client) {
        std::string const& name = mOwners.at(client);
        sdbus::createProxy(*mConnection, name, kClientPath)
            ->callMethod("Reclaim")
            .onInterface(kClientInterface)
            .withArguments(client, reclaim)
            .dontExpectReply();
        return mReclaims[reclaim] = {client, name, {}};
    }

    /// Does what the pool wants done.
    void advance() {
        for (auto const& step : mPool.advance()) {
            bool const isReclaim = step.reclaim != 0;
            bool const isGranted = !isReclaim && step.code == 0;
            log(step.code == ResourcePool::kStuck ? 1
                : isGranted                       ? 3
                                                  : 2,
                isReclaim   ? "reclaim"
                : isGranted ? "grant"
                            : "refuse",
                mPool.describe(step));
            if (isReclaim) {
                askHolder(step.reclaim, step.holder);
            } else {
                mReplies.extract(step.request).mapped().returnResults(step.code);
            }
        }
    }

    /// Writes a line of the library's form, unless there are too many.
    void log(int level, char const* operation, std::string const& text) {
        if (level > host::highestPrintedLevel) {
            return;
        }
        auto const second =
            duration_cast<std::chrono::seconds>(ResourcePool::Clock::now().time_since_epoch());
        mLinesInSecond = std::exchange(mLogSecond, second) == second ? mLinesInSecond + 1 : 1;
        if (mLinesInSecond <= kLinesPerSecond) {
            bool const isLast = mLinesInSecond == kLinesPerSecond;
            kvo_media_log_printf(level, "ResourceManager", "daemon/Service.h", operation, __LINE__,
                                 "%s",
                                 isLast ? "more lines of this second are left out" : text.c_str());
        }
    }

    std::string mSettingsFile;
    host::Settings mSettings;
    sdbus::UnixFd mDeaths;  ///< An epoll descriptor, of those of the processes.
    std::unique_ptr<sdbus::IConnection> mConnection;
    std::unique_ptr<sdbus::IObject> mObject;
    std::unique_ptr<sdbus::IProxy> mBusDaemon;
    ResourcePool mPool;
    std::map<std::string, Process> mProcesses;  ///< By unique name.
    std::map<int, std::string> mOwners;         ///< Unique names by client.
    std::map<int, Asked> mReclaims;
    std::map<ResourcePool::Number, Reply> mReplies;  ///< By waiting request.
    std::chrono::seconds mLogSecond{0};
    int mLinesInSecond = 0;
};

}  // namespace kvo::service
