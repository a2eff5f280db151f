#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "host/ResourcePool.h"
#include "host/Settings.h"

namespace kvo::service {

/// The resource manager for all processes on a bus: answers their calls out of one pool and asks
/// holders to give up. Runs on one thread.
class Service {
public:
    /// Takes the service's name on the bus. Pool and policy are those of the environment, unless
    /// the file `settings`, if that is not empty, says otherwise. Throws sdbus::Error when the name
    /// is taken or there is no bus, std::invalid_argument for a mistake in the file.
    explicit Service(std::string settings);

    /// Serves until a signal other than SIGHUP can be read from `signals`, a signalfd; at SIGHUP
    /// reads the settings anew, and keeps the old ones when there is a mistake in them. Throws
    /// sdbus::Error when the bus is lost.
    void run(int signals);

private:
    /// A process that has opened clients, known by its unique name on the bus.
    struct Process {
        host::ResourcePool::Owner owner;
        std::unique_ptr<sdbus::IProxy> proxy;
        sdbus::UnixFd
            death;  ///< Readable once it has ended, whoever else has its place on the bus.
    };
    using Reply = sdbus::Result<std::int32_t>;
    /// A reclaim in flight, and who wants to know what comes of it, if not a request.
    struct Asked {
        std::string name;
        std::optional<Reply> reply;
    };
    /// Code, type of core, port, width and height of the core.
    using Holding = std::tuple<int, int, int, int, int>;

    void registerOperations();
    void watchForDeaths();
    void readSettings();

    // Each handles a call of the process that the current message is from.
    std::tuple<std::int32_t, std::int32_t, std::string> open(std::string const& name, int above);
    Holding holding(int client);
    void acquire(Reply&& reply, int client, host::ResourcePool::Request const& request,
                 bool tryOnly, int insideReclaim);
    void reclaim(Reply&& reply, int client, bool byForce);
    void answerReclaim(int reclaim, int answer);

    [[nodiscard]] std::string sender() const;
    [[nodiscard]] bool isOwn(int client) const;
    Process* process(std::string const& name);
    void forget(std::string const& name);
    void forgetDead();
    void endReclaim(int reclaim, bool gaveUp);
    void askHolder(int reclaim, int holder, std::optional<Reply> reply = {});
    void advance();
    void log(int level, char const* operation, std::string const& text);

    std::string mSettingsFile;
    host::Settings mSettings;
    std::unique_ptr<sdbus::IConnection> mConnection;
    std::unique_ptr<sdbus::IObject> mObject;
    std::unique_ptr<sdbus::IProxy> mBusDaemon;
    sdbus::UnixFd mDeaths;  ///< An epoll descriptor, of those of the processes.
    host::ResourcePool mPool;
    std::map<std::string, Process> mProcesses;  ///< By unique name.
    std::map<int, std::string> mOwners;         ///< Unique names by client.
    std::map<int, Asked> mReclaims;
    std::map<host::ResourcePool::Number, Reply> mReplies;  ///< By waiting request.
    std::chrono::seconds mLogSecond{0};
    int mLinesInSecond = 0;
};

}  // namespace kvo::service
