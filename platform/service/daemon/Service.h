#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <map>
#include <memory>
#include <string>

#include "host/ResourcePool.h"

namespace kvo::service {

/// The resource manager for all processes on a bus: answers their calls out of one pool and asks
/// holders to give up. Runs on one thread.
class Service {
public:
    /// Takes the service's name on the bus. Throws sdbus::Error when it is taken or there is no
    /// bus.
    Service();

    /// Serves until there is something to read from the descriptor `end`. Throws sdbus::Error when
    /// the bus is lost.
    void run(int end);

private:
    /// A process that has opened clients, known by its unique name on the bus.
    struct Process {
        host::ResourcePool::Owner owner;
        std::unique_ptr<sdbus::IProxy> proxy;
    };
    using Reply = sdbus::Result<std::int32_t>;
    /// Code, type of core, port, width and height of the core.
    using Holding = std::tuple<int, int, int, int, int>;

    void registerOperations();
    void watchForDeaths();

    // Each handles a call of the process that the current message is from.
    std::tuple<std::int32_t, std::int32_t, std::string> open(std::string const& name, int above);
    int close(int client);
    int giveBack(int client);
    Holding holding(int client);
    void acquire(Reply&& reply, int client, host::ResourcePool::Request const& request,
                 bool tryOnly, int insideReclaim);

    [[nodiscard]] std::string sender() const;
    [[nodiscard]] bool isOwn(int client) const;
    Process& process(std::string const& name);
    void forget(std::string const& name);
    void askHolder(int reclaim, int holder);
    void advance();

    std::unique_ptr<sdbus::IConnection> mConnection;
    std::unique_ptr<sdbus::IObject> mObject;
    std::unique_ptr<sdbus::IProxy> mBusDaemon;
    host::ResourcePool mPool;
    std::map<std::string, Process> mProcesses;             ///< By unique name.
    std::map<int, std::string> mOwners;                    ///< Unique names by client.
    std::map<int, std::string> mReclaims;                  ///< Unique names by reclaim in flight.
    std::map<host::ResourcePool::Number, Reply> mReplies;  ///< By waiting request.
};

}  // namespace kvo::service
