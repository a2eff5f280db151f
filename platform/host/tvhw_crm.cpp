#include "tvhw_crm.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <ostream>
#include <utility>

#include "host/Forever.h"
#include "host/Misuse.h"
#include "host/PlatformCall.h"
#include "host/ResourceManager.h"

namespace kvo::host {

namespace {

constexpr std::array<char const*, 11> kMimeTypes{
    "video/avc",   "video/hevc", "video/x-vnd.on2.vp9", "video/av01",         "video/mp4v-es",
    "video/mpeg2", "video/3gpp", "video/mjpeg",         "video/dolby-vision", "video/x-vnd.on2.vp8",
    "video/vvc"};

/// A handle is its client's unique id, and so never leads to memory, however old it is.
int idOf(TVHW_CRM_HANDLE handle) {
    auto const id = reinterpret_cast<std::uintptr_t>(handle);
    return id <= INT32_MAX ? static_cast<int>(id) : 0;
}

TVHW_CRM_HANDLE handleOf(int client) {
    return reinterpret_cast<TVHW_CRM_HANDLE>(static_cast<std::uintptr_t>(client));
}

/// A client as the journal and the log name it: by its unique id, 0 when it is not open.
int named(TVHW_CRM_HANDLE handle) {
    return areCallsDescribed() && resourceManager().isOpen(idOf(handle)) ? idOf(handle) : 0;
}

template <typename Record>
bool isZero(Record const& record) {
    static Record const kZero{};
    return std::memcmp(&record, &kZero, sizeof(Record)) == 0;
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

bool isPortSet(TVHW_CRM_RESOURCE resource) {
    int const ports = std::exchange(resource.videoPort, 0);
    return ports >= TVHW_CRM_VIDEO_PORT_0 && ports <= TVHW_CRM_VIDEO_PORT_ALL && isZero(resource);
}

/// The clients that are open, each with the process that opened it: a forked one has not opened its
/// parent's.
struct OpenClients {
    std::mutex mutex;
    std::map<int, int> pids;  ///< By client.
};

void noteOpen(int client) {
    std::lock_guard<std::mutex> const lock(forever<OpenClients>().mutex);
    forever<OpenClients>().pids[client] = getpid();
}

void noteClosed(int client) {
    std::lock_guard<std::mutex> const lock(forever<OpenClients>().mutex);
    forever<OpenClients>().pids.erase(client);
}

/// Tells of open clients after the destructors of the program's own static objects.
[[maybe_unused]] int const gTellsAtExit = std::atexit([] {
    std::lock_guard<std::mutex> const lock(forever<OpenClients>().mutex);
    for (auto const& [client, pid] : forever<OpenClients>().pids) {
        if (pid == getpid()) {
            tellMisuse("client " + std::to_string(client) + " is open when the process ends",
                       "destroy every wrapper before the process ends");
        }
    }
});

int acquire(char const* operation, TVHW_CRM_HANDLE client, TVHW_CRM_ACQUIRE_PARAM const* request,
            bool tryOnly) {
    TVHW_CRM_ACQUIRE_PARAM const values = request == nullptr ? TVHW_CRM_ACQUIRE_PARAM{} : *request;
    return PlatformCall(operation, named(client), values.codecType, values.width, values.height,
                        values.frameRate, values.isEncoder, values.extraFlag)
        .perform([&] {
            if (request == nullptr || !isWellFormed(values)) {
                return -EINVAL;
            }
            return resourceManager().acquire(
                idOf(client),
                {values.codecType == TVHW_CRM_CODEC_TYPE_DISPLAY, values.isEncoder != 0,
                 values.codecType, values.width, values.height},
                tryOnly);
        });
}

}  // namespace

extern "C" {

KVO_MEDIA_EXPORT int TVHW_CRM_ClientInit(TVHW_CRM_HANDLE* client, char const* name,
                                         TVHW_CRM_RECLAIM_CALLBACK reclaim, int reserved,
                                         void* cookie) {
    return PlatformCall("TVHW_CRM_ClientInit", name, reserved,
                        reinterpret_cast<std::uintptr_t>(cookie))
        .perform([&] {
            if (client == nullptr || reclaim == nullptr || reserved != 0) {
                return -EINVAL;
            }
            int id = 0;
            int const result = resourceManager().open(name, reclaim, cookie, id);
            if (result == 0) {
                *client = handleOf(id);
                noteOpen(id);
            }
            return result;
        });
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientFree(TVHW_CRM_HANDLE* client) {
    auto* const handle = client == nullptr ? nullptr : *client;
    PlatformCall call("TVHW_CRM_ClientFree", named(handle));
    return call.performAnyhow([&] {
        noteClosed(idOf(handle));
        int const result = resourceManager().close(idOf(handle));
        if (client != nullptr && result == 0 && !call.fails()) {
            *client = nullptr;  // A failed call leaves the caller's handle as it is.
        }
        return result;
    });
}

KVO_MEDIA_EXPORT int TVHW_CRM_CodecTypeFromMIME(char const* mime) {
    return PlatformCall("TVHW_CRM_CodecTypeFromMIME", mime).perform([&] {
        for (std::size_t index = 0; index < kMimeTypes.size(); ++index) {
            if (std::strcmp(mime, kMimeTypes[index]) == 0) {
                return static_cast<int>(index) + 1;
            }
        }
        return 0;
    });
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientAcquireResource(TVHW_CRM_HANDLE client,
                                                    TVHW_CRM_ACQUIRE_PARAM const* request) {
    return acquire("TVHW_CRM_ClientAcquireResource", client, request, false);
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientTryAcquireResource(TVHW_CRM_HANDLE client,
                                                       TVHW_CRM_ACQUIRE_PARAM const* request) {
    return acquire("TVHW_CRM_ClientTryAcquireResource", client, request, true);
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientGetResource(TVHW_CRM_HANDLE client,
                                                TVHW_CRM_RESOURCE* resource) {
    return PlatformCall("TVHW_CRM_ClientGetResource", named(client)).perform([&] {
        if (resource == nullptr || !isZero(*resource)) {
            return -EINVAL;
        }
        return resourceManager().describe(idOf(client), *resource);
    });
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientClearResource(TVHW_CRM_HANDLE client,
                                                  TVHW_CRM_RESOURCE const* resource) {
    return PlatformCall("TVHW_CRM_ClientClearResource", named(client),
                        resource == nullptr ? 0 : resource->videoPort)
        .perform([&] {
            // The planes of the ports go black; who holds the ports does not change.
            bool const isPossible = resource != nullptr && isPortSet(*resource);
            return isPossible && resourceManager().isOpen(idOf(client)) ? 0 : -EINVAL;
        });
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientReleaseResource(TVHW_CRM_HANDLE client) {
    return PlatformCall("TVHW_CRM_ClientReleaseResource", named(client)).performAnyhow([&] {
        return resourceManager().giveBack(idOf(client));
    });
}

KVO_MEDIA_EXPORT int TVHW_CRM_ClientGetUniqueId(TVHW_CRM_HANDLE client, int* id) {
    return PlatformCall("TVHW_CRM_ClientGetUniqueId", named(client)).perform([&] {
        if (id == nullptr || !resourceManager().isOpen(idOf(client))) {
            return -EINVAL;
        }
        *id = idOf(client);
        return 0;
    });
}

}  // extern "C"

}  // namespace kvo::host
