#pragma once

#include <string>

#include "host/LoggedCall.h"
#include "host/ResourcePool.h"
#include "tvhw_crm.h"

// The content of a reclaim's parameter is this platform's own; clients do not read it.
struct _TVHW_CRM_RECLAIM_PARAM {
    int uniqueId;
};

namespace kvo::host {

/// What stands behind the C functions of the resource manager. Clients are named by their unique
/// ids; the C functions have checked what they pass on. Every operation may be called from any
/// thread, and returns 0 or one of the pool's result codes.
class ResourceManager {
public:
    ResourceManager(ResourceManager const&) = delete;
    ResourceManager& operator=(ResourceManager const&) = delete;

    /// Opens a client and writes its id.
    virtual int open(std::string const& name, TVHW_CRM_RECLAIM_CALLBACK reclaim, void* cookie,
                     int& client) = 0;

    /// Closes a client, which gives back all that it holds.
    virtual int close(int client) = 0;

    /// Says whether a client is open.
    virtual bool isOpen(int client) = 0;

    /// Blocks until the request is granted or refused.
    virtual int acquire(int client, ResourcePool::Request const& request, bool tryOnly) = 0;

    /// Describes what a client holds; without a result of 0 leaves `resource` as it is.
    virtual int describe(int client, TVHW_CRM_RESOURCE& resource) = 0;

    /// Gives back all that a client holds.
    virtual int giveBack(int client) = 0;

protected:
    ResourceManager() = default;
    ~ResourceManager() = default;
};

/// Returns the one manager of the process. Never destroyed, since clients in static storage may
/// outlive every other object.
ResourceManager& resourceManager();

/// Calls a client's reclaim callback, on this thread, and returns its answer.
inline int callReclaim(TVHW_CRM_RECLAIM_CALLBACK reclaim, int client, void* cookie) {
    TVHW_CRM_RECLAIM_PARAM const param{client};
    if (!mayLogCalls()) {
        return reclaim(&param, cookie);
    }
    LoggedCall const call(kPlatformTag, "reclaim(" + std::to_string(client) + ")");
    call.logEntry();
    int const answer = reclaim(&param, cookie);
    call.logReturn(answer);
    return answer;
}

}  // namespace kvo::host
