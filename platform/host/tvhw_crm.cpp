#include "tvhw_crm.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "host/HostPlatform.h"
#include "host/PlatformCall.h"

// The content of a reclaim's parameter is this platform's own; clients do not read it.
struct _TVHW_CRM_RECLAIM_PARAM {
    int uniqueId;
};

/// A client as the manager sees it. All fields but the first four are guarded by the manager's
/// mutex.
struct TVHW_CRM_CLIENT {
    int uniqueId;
    std::string name;
    TVHW_CRM_RECLAIM_CALLBACK reclaim;
    void* cookie;

    std::shared_ptr<kvo::host::CodecCore const> core;
    int port = 0;                     ///< Counted from 1; 0 for none.
    std::uint64_t coreGrantedAt = 0;  ///< Order of the grant: lower is older.
    std::uint64_t portGrantedAt = 0;
    int reclaimsRunning = 0;
};

namespace kvo::host {

namespace {

constexpr int kInvalid = -22;      ///< No such client, or a request that makes no sense.
constexpr int kUnsupported = -95;  ///< No core of the pool could ever serve the request.
constexpr int kBusy = -16;         ///< Nothing is free, or its holder keeps it.
constexpr int kNothingHeld = -61;

constexpr int kPortCount = 2;
constexpr int kFirstUniqueId = 70001;

constexpr std::array<char const*, 11> kMimeTypes{
    "video/avc",   "video/hevc", "video/x-vnd.on2.vp9", "video/av01",         "video/mp4v-es",
    "video/mpeg2", "video/3gpp", "video/mjpeg",         "video/dolby-vision", "video/x-vnd.on2.vp8",
    "video/vvc"};

std::vector<CodecCore> defaultPool() {
    return {{1, false, 3840, 2160},
            {2, false, 1920, 1088},
            {3, false, 1920, 1088},
            {1, true, 1920, 1088},
            {2, true, 1920, 1088}};
}

using Client = TVHW_CRM_CLIENT;

template <typename Record>
bool isZero(Record const& record) {
    static Record const kZero{};
    return std::memcmp(&record, &kZero, sizeof(Record)) == 0;
}

/// Shared, so that a client keeps its core when the pool is replaced.
using Pool = std::vector<std::shared_ptr<CodecCore const>>;

Pool share(std::vector<CodecCore> const& cores) {
    Pool pool;
    for (CodecCore const& core : cores) {
        pool.push_back(std::make_shared<CodecCore const>(core));
    }
    return pool;
}

/// The resource manager: one pool of cores and ports for all clients of the process.
class ResourceManager {
public:
    int open(TVHW_CRM_HANDLE* handle, char const* name, TVHW_CRM_RECLAIM_CALLBACK reclaim,
             void* cookie) {
        if (handle == nullptr || reclaim == nullptr) {
            return kInvalid;
        }
        std::lock_guard<std::mutex> const lock(mMutex);
        auto client = std::make_shared<Client>();
        client->uniqueId = mNextUniqueId++;
        client->name = name;
        client->reclaim = reclaim;
        client->cookie = cookie;
        *handle = client.get();
        mClients.emplace(*handle, std::move(client));
        return 0;
    }

    int close(TVHW_CRM_HANDLE* handle) {
        std::lock_guard<std::mutex> const lock(mMutex);
        auto const client = handle == nullptr ? nullptr : find(*handle);
        if (client == nullptr) {
            return kInvalid;
        }
        takeAll(*client);
        mClients.erase(*handle);
        *handle = nullptr;
        return 0;
    }

    int acquire(TVHW_CRM_HANDLE handle, TVHW_CRM_ACQUIRE_PARAM const& request, bool tryOnly) {
        std::unique_lock<std::mutex> lock(mMutex);
        auto const client = find(handle);
        if (client == nullptr) {
            return kInvalid;
        }
        if (!isServable(request)) {
            return kUnsupported;
        }
        while (!grantFree(*client, request)) {
            if (tryOnly) {
                return kBusy;
            }
            auto const holder = longestHolder(request, *client);
            if (holder == nullptr) {
                return kBusy;
            }
            if (holder->reclaimsRunning > 0) {
                // Another newcomer has asked that holder; see what comes of it.
                mReclaimEnded.wait(lock);
            } else if (reclaimFrom(holder, lock) != 1) {
                return kBusy;
            }
            if (find(handle) != client) {
                return kInvalid;
            }
        }
        return 0;
    }

    int describe(TVHW_CRM_HANDLE handle, TVHW_CRM_RESOURCE& resource) {
        std::lock_guard<std::mutex> const lock(mMutex);
        auto const client = find(handle);
        if (client == nullptr) {
            return kInvalid;
        }
        if (client->core == nullptr && client->port == 0) {
            return kNothingHeld;
        }
        resource = {};
        if (client->core != nullptr) {
            resource.core = client->core->type;
            resource.maxWidth = client->core->maxWidth;
            resource.maxHeight = client->core->maxHeight;
        }
        resource.videoPort = client->port;
        resource.core = mForced.core.value_or(resource.core);
        resource.videoPort = mForced.videoPort.value_or(resource.videoPort);
        resource.maxWidth = mForced.maxWidth.value_or(resource.maxWidth);
        resource.maxHeight = mForced.maxHeight.value_or(resource.maxHeight);
        return 0;
    }

    int clearPorts(TVHW_CRM_HANDLE handle, TVHW_CRM_RESOURCE request) {
        int const ports = std::exchange(request.videoPort, 0);
        bool const isPortSet =
            ports >= TVHW_CRM_VIDEO_PORT_0 && ports <= TVHW_CRM_VIDEO_PORT_ALL && isZero(request);
        std::lock_guard<std::mutex> const lock(mMutex);
        // The planes of the ports go black; who holds the ports does not change.
        return find(handle) != nullptr && isPortSet ? 0 : kInvalid;
    }

    int giveBack(TVHW_CRM_HANDLE handle) {
        std::lock_guard<std::mutex> const lock(mMutex);
        auto const client = find(handle);
        if (client == nullptr) {
            return kInvalid;
        }
        takeAll(*client);
        return 0;
    }

    int uniqueId(TVHW_CRM_HANDLE handle, int& id) {
        std::lock_guard<std::mutex> const lock(mMutex);
        auto const client = find(handle);
        if (client == nullptr) {
            return kInvalid;
        }
        id = client->uniqueId;
        return 0;
    }

    int reclaimById(int uniqueId) {
        std::unique_lock<std::mutex> lock(mMutex);
        auto const client = std::find_if(mClients.begin(), mClients.end(), [&](auto const& entry) {
            return entry.second->uniqueId == uniqueId;
        });
        return client == mClients.end() ? -1 : reclaimFrom(client->second, lock);
    }

    void setPool(std::vector<CodecCore> const& cores) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mPool = share(cores);
    }

    void force(ForcedGrant grant) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mForced = grant;
    }

    std::vector<CrmClient> clients() {
        std::lock_guard<std::mutex> const lock(mMutex);
        std::vector<CrmClient> result;
        for (auto const& [handle, client] : mClients) {
            result.push_back({client->uniqueId, client->name,
                              reinterpret_cast<std::uintptr_t>(client->cookie),
                              client->core == nullptr ? 0 : client->core->type, client->port});
        }
        std::sort(result.begin(), result.end(), [](auto const& left, auto const& right) {
            return left.uniqueId < right.uniqueId;
        });
        return result;
    }

private:
    // The lock is held in all of these.

    [[nodiscard]] std::shared_ptr<Client> find(TVHW_CRM_HANDLE handle) const {
        auto const client = mClients.find(handle);
        return client == mClients.end() ? nullptr : client->second;
    }

    static bool isDisplay(TVHW_CRM_ACQUIRE_PARAM const& request) {
        return request.codecType == TVHW_CRM_CODEC_TYPE_DISPLAY;
    }

    static bool fits(CodecCore const& core, TVHW_CRM_ACQUIRE_PARAM const& request) {
        return request.codecType != 0 && core.encoder == (request.isEncoder != 0) &&
               request.width <= core.maxWidth && request.height <= core.maxHeight;
    }

    [[nodiscard]] bool isServable(TVHW_CRM_ACQUIRE_PARAM const& request) const {
        return isDisplay(request) || std::any_of(mPool.begin(), mPool.end(), [&](auto const& core) {
                   return fits(*core, request);
               });
    }

    bool grantFree(Client& client, TVHW_CRM_ACQUIRE_PARAM const& request) {
        return isDisplay(request) ? grantFreePort(client) : grantFreeCore(client, request);
    }

    bool grantFreePort(Client& client) {
        for (int port = 1; port <= kPortCount; ++port) {
            bool const taken =
                std::any_of(mClients.begin(), mClients.end(), [&](auto const& other) {
                    return other.first != &client && other.second->port == port;
                });
            if (!taken) {
                client.port = port;
                client.portGrantedAt = ++mGrantCount;
                return true;
            }
        }
        return false;
    }

    bool grantFreeCore(Client& client, TVHW_CRM_ACQUIRE_PARAM const& request) {
        for (auto const& core : mPool) {
            bool const taken =
                std::any_of(mClients.begin(), mClients.end(), [&](auto const& other) {
                    return other.first != &client && other.second->core == core;
                });
            if (!taken && fits(*core, request)) {
                client.core = core;
                client.coreGrantedAt = ++mGrantCount;
                return true;
            }
        }
        return false;
    }

    /// Says whether taking what `client` holds would help with `request`.
    [[nodiscard]] bool holds(Client const& client, TVHW_CRM_ACQUIRE_PARAM const& request) const {
        if (isDisplay(request)) {
            return client.port != 0;
        }
        return client.core != nullptr && fits(*client.core, request) &&
               std::find(mPool.begin(), mPool.end(), client.core) != mPool.end();
    }

    /// Returns the other client that has held what `request` asks for the longest.
    [[nodiscard]] std::shared_ptr<Client> longestHolder(TVHW_CRM_ACQUIRE_PARAM const& request,
                                                        Client const& newcomer) const {
        std::shared_ptr<Client> longest;
        std::uint64_t longestSince = 0;
        for (auto const& [handle, client] : mClients) {
            std::uint64_t const since =
                isDisplay(request) ? client->portGrantedAt : client->coreGrantedAt;
            if (handle != &newcomer && holds(*client, request) &&
                (longest == nullptr || since < longestSince)) {
                longest = client;
                longestSince = since;
            }
        }
        return longest;
    }

    /// Asks a client for what it holds, on a thread of its own and without the lock, and takes it
    /// when the answer is 1. The client may be closed by the time its callback returns.
    int reclaimFrom(std::shared_ptr<Client> const& clientRef, std::unique_lock<std::mutex>& lock) {
        auto const client = clientRef;
        ++client->reclaimsRunning;
        lock.unlock();
        int answer = 0;
        std::thread([&] {
            TVHW_CRM_RECLAIM_PARAM const param{client->uniqueId};
            answer = client->reclaim(&param, client->cookie);
        }).join();
        lock.lock();
        --client->reclaimsRunning;
        if (answer == 1) {
            takeAll(*client);
        }
        mReclaimEnded.notify_all();
        return answer;
    }

    static void takeAll(Client& client) {
        client.core = nullptr;
        client.port = 0;
    }

    std::mutex mMutex;
    std::condition_variable mReclaimEnded;
    Pool mPool = share(defaultPool());
    ForcedGrant mForced;
    std::map<TVHW_CRM_HANDLE, std::shared_ptr<Client>> mClients;
    int mNextUniqueId = kFirstUniqueId;
    std::uint64_t mGrantCount = 0;
};

ResourceManager& manager() {
    static ResourceManager theManager;
    return theManager;
}

[[maybe_unused]] bool const gResets = [] {
    onReset([] {
        manager().setPool(defaultPool());
        manager().force({});
    });
    return true;
}();

/// A handle as the journal names it: by its client's unique id, 0 when there is none.
struct Named {
    TVHW_CRM_HANDLE handle;
};

std::ostream& operator<<(std::ostream& out, Named client) {
    int id = 0;
    manager().uniqueId(client.handle, id);
    return out << id;
}

bool isFlag(std::int32_t value) { return value == 0 || value == 1; }

/// Refuses what a driver would: values that nothing could mean, and fields in use that must be 0.
bool isWellFormed(TVHW_CRM_ACQUIRE_PARAM request) {
    bool const hasCodecType = request.codecType == TVHW_CRM_CODEC_TYPE_DISPLAY ||
                              (request.codecType >= 0 &&
                               request.codecType <= static_cast<std::int32_t>(kMimeTypes.size()));
    bool const hasValues = hasCodecType && request.width >= 0 && request.height >= 0 &&
                           isFlag(request.isEncoder) && isFlag(request.extraFlag);
    request.codecType = request.width = request.height = request.frameRate = 0;
    request.isEncoder = request.extraFlag = 0;
    return hasValues && isZero(request);
}

int acquire(char const* operation, TVHW_CRM_HANDLE client, TVHW_CRM_ACQUIRE_PARAM const* request,
            bool tryOnly) {
    TVHW_CRM_ACQUIRE_PARAM const values = request == nullptr ? TVHW_CRM_ACQUIRE_PARAM{} : *request;
    if (auto const forced =
            platformCall(operation, Named{client}, values.codecType, values.width, values.height,
                         values.frameRate, values.isEncoder, values.extraFlag)) {
        return *forced;
    }
    return request != nullptr && isWellFormed(values) ? manager().acquire(client, values, tryOnly)
                                                      : kInvalid;
}

}  // namespace

void setPool(std::vector<CodecCore> const& cores) { manager().setPool(cores); }

void forceGrant(ForcedGrant grant) { manager().force(grant); }

std::vector<CrmClient> crmClients() { return manager().clients(); }

std::future<int> reclaim(int uniqueId) {
    return std::async(std::launch::async, [uniqueId] { return manager().reclaimById(uniqueId); });
}

}  // namespace kvo::host

using kvo::host::kInvalid;
using kvo::host::manager;
using kvo::host::Named;
using kvo::host::platformCall;

extern "C" {

KVO_MEDIA_EXPORT int TVHW_CRM_ClientInit(TVHW_CRM_HANDLE* client, char const* name,
                                         TVHW_CRM_RECLAIM_CALLBACK reclaim, int reserved,
                                         void* cookie) {
    if (auto const forced = platformCall("TVHW_CRM_ClientInit", name, reserved,
                                         reinterpret_cast<std::uintptr_t>(cookie))) {
        return *forced;
    }
    return reserved == 0 ? manager().open(client, name, reclaim, cookie) : kInvalid;
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientFree(TVHW_CRM_HANDLE* client) {
    auto const forced =
        platformCall("TVHW_CRM_ClientFree", Named{client == nullptr ? nullptr : *client});
    if (forced) {
        // A failed call leaves the caller's handle as it is.
        TVHW_CRM_HANDLE kept = client == nullptr ? nullptr : *client;
        manager().close(&kept);
        return *forced;
    }
    return manager().close(client);
}

KVO_MEDIA_EXPORT int TVHW_CRM_CodecTypeFromMIME(char const* mime) {
    if (auto const forced = platformCall("TVHW_CRM_CodecTypeFromMIME", mime)) {
        return *forced;
    }
    for (std::size_t index = 0; index < kvo::host::kMimeTypes.size(); ++index) {
        if (std::strcmp(mime, kvo::host::kMimeTypes[index]) == 0) {
            return static_cast<int>(index) + 1;
        }
    }
    return 0;
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientAcquireResource(TVHW_CRM_HANDLE client,
                                                    TVHW_CRM_ACQUIRE_PARAM const* request) {
    return kvo::host::acquire("TVHW_CRM_ClientAcquireResource", client, request, false);
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientTryAcquireResource(TVHW_CRM_HANDLE client,
                                                       TVHW_CRM_ACQUIRE_PARAM const* request) {
    return kvo::host::acquire("TVHW_CRM_ClientTryAcquireResource", client, request, true);
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientGetResource(TVHW_CRM_HANDLE client,
                                                TVHW_CRM_RESOURCE* resource) {
    if (auto const forced = platformCall("TVHW_CRM_ClientGetResource", Named{client})) {
        return *forced;
    }
    if (resource == nullptr || !kvo::host::isZero(*resource)) {
        return kInvalid;
    }
    return manager().describe(client, *resource);
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientClearResource(TVHW_CRM_HANDLE client,
                                                  TVHW_CRM_RESOURCE const* resource) {
    if (auto const forced = platformCall("TVHW_CRM_ClientClearResource", Named{client},
                                         resource == nullptr ? 0 : resource->videoPort)) {
        return *forced;
    }
    return resource == nullptr ? kInvalid : manager().clearPorts(client, *resource);
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientReleaseResource(TVHW_CRM_HANDLE client) {
    auto const forced = platformCall("TVHW_CRM_ClientReleaseResource", Named{client});
    int const result = manager().giveBack(client);
    return forced.value_or(result);
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientGetUniqueId(TVHW_CRM_HANDLE client, int* id) {
    if (auto const forced = platformCall("TVHW_CRM_ClientGetUniqueId", Named{client})) {
        return *forced;
    }
    return id == nullptr ? kInvalid : manager().uniqueId(client, *id);
}

}  // extern "C"
