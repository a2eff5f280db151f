#include "ResourceClient.h"

#include <cstdint>

#include "Log.h"

namespace {

constexpr char kLogTag[] = "VideoClient";

constexpr int kFailed = -1;
constexpr int kNotConnected = -2;

/// Sends a request in its plain or its try form.
int acquire(TVHW_CRM_HANDLE client, TVHW_CRM_ACQUIRE_PARAM const& request, bool tryOnly) {
    return tryOnly ? TVHW_CRM_ClientTryAcquireResource(client, &request)
                   : TVHW_CRM_ClientAcquireResource(client, &request);
}

}  // namespace

ReferenceHolder::~ReferenceHolder() {
    std::lock_guard<std::mutex> const lock(mMutex);
    mReferences.clear();
}

unsigned int ReferenceHolder::holdWeakReference(std::shared_ptr<void> const& object) {
    static unsigned int id = 0;
    std::lock_guard<std::mutex> const lock(mMutex);
    ++id;
    mReferences.emplace(id, object);
    return id;
}

void ReferenceHolder::release(unsigned int id) {
    std::lock_guard<std::mutex> const lock(mMutex);
    mReferences.erase(id);
}

int const ResourceClient::sMaxVdoPort = 2;

ReferenceHolder ResourceClient::sReferenceHolder;

std::shared_ptr<ResourceClient> ResourceClient::open(std::shared_ptr<Reclaimable> const& owner) {
    auto client = std::make_shared<ResourceClient>(owner);
    if (client->initialize() != 0) {
        return nullptr;
    }
    return client;
}

ResourceClient::ResourceClient(std::shared_ptr<Reclaimable> const& owner) : mReclaimable(owner) {}

ResourceClient::~ResourceClient() {
    releaseResource();
    UnInitialize();
}

int ResourceClient::initialize() {
    mReferenceId = sReferenceHolder.holdWeakReference(shared_from_this());
    // The id goes to the manager, not the address: a reclaim that comes too late finds nothing.
    auto* const cookie = reinterpret_cast<void*>(static_cast<std::uintptr_t>(mReferenceId));
    int const ret = TVHW_CRM_ClientInit(&mCrmClient, "VDC", OnReclaim, 0, cookie);
    if (ret == 0) {
        return 0;
    }
    TVHW_LOG(kLogFailure, "crm: failed to init client, ret=%d", ret);
    mCrmClient = nullptr;
    sReferenceHolder.release(mReferenceId);
    mReferenceId = 0;
    return kFailed;
}

int ResourceClient::acquireResource(char const* mime, int width, int height, int framerate,
                                    bool isEncoder, bool extraFlag, bool tryOnly) {
    if (mCrmClient == nullptr) {
        return kNotConnected;
    }
    TVHW_CRM_ClientReleaseResource(mCrmClient);

    TVHW_CRM_ACQUIRE_PARAM request{};
    request.codecType = TVHW_CRM_CodecTypeFromMIME(mime);
    request.width = width;
    request.height = height;
    request.frameRate = framerate;
    request.isEncoder = isEncoder ? 1 : 0;
    request.extraFlag = extraFlag ? 1 : 0;
    if (request.codecType == 0) {
        TVHW_LOG(kLogRefused, "crm-acquire: %s -> none", mime);
    }
    if (int const ret = acquire(mCrmClient, request, tryOnly); ret != 0) {
        TVHW_LOG(kLogFailure, "crm-acquire: failed to acquire resource, ret=%d, try=%d", ret,
                 tryOnly ? 1 : 0);
        return 0;
    }

    TVHW_CRM_RESOURCE resource{};
    if (int const ret = TVHW_CRM_ClientGetResource(mCrmClient, &resource); ret != 0) {
        TVHW_LOG(kLogRefused, "crm-acquire: failed to get resource, ret=%d", ret);
        return 0;
    }
    TVHW_LOG(kLogState, "crm: acquired resource, core=0x%x, port=%d, size=%d/%d", resource.core,
             resource.videoPort, resource.maxWidth, resource.maxHeight);
    return 0;
}

int ResourceClient::acquireDisplayResource(bool tryOnly) {
    if (mCrmClient == nullptr) {
        return kNotConnected;
    }
    TVHW_CRM_ACQUIRE_PARAM request{};
    request.codecType = TVHW_CRM_CODEC_TYPE_DISPLAY;
    if (int const ret = acquire(mCrmClient, request, tryOnly); ret != 0) {
        TVHW_LOG(kLogFailure, "crm-acquire: failed to acquire display resource, ret=%d, try=%d",
                 ret, tryOnly ? 1 : 0);
        return 0;
    }

    TVHW_CRM_RESOURCE resource{};
    if (int const ret = TVHW_CRM_ClientGetResource(mCrmClient, &resource); ret != 0) {
        TVHW_LOG(kLogRefused, "crm-acquire: failed to get display resource, ret=%d", ret);
        return 0;
    }
    TVHW_LOG(kLogState, "crm: acquired display resource, port=%d", resource.videoPort);
    return 0;
}

int ResourceClient::getResource(int* core, int* port, int* maxWidth, int* maxHeight) {
    if (mCrmClient == nullptr) {
        return kNotConnected;
    }
    TVHW_CRM_RESOURCE resource{};
    if (int const ret = TVHW_CRM_ClientGetResource(mCrmClient, &resource); ret != 0) {
        TVHW_LOG(kLogFailure, "crm-resource: ret=%d", ret);
        return kFailed;
    }
    *core = resource.core;
    *port = resource.videoPort;
    *maxWidth = resource.maxWidth;
    *maxHeight = resource.maxHeight;
    return 0;
}

int ResourceClient::getDisplayResource(int* port) {
    if (mCrmClient == nullptr) {
        return kNotConnected;
    }
    TVHW_CRM_RESOURCE resource{};
    if (int const ret = TVHW_CRM_ClientGetResource(mCrmClient, &resource); ret != 0) {
        TVHW_LOG(kLogFailure, "crm-resource: ret=%d", ret);
        return kFailed;
    }
    *port = resource.videoPort;
    return 0;
}

int ResourceClient::clearDisplayResource(_TVHW_CRM_VIDEO_PORT ports) {
    if (mCrmClient == nullptr) {
        return kNotConnected;
    }
    TVHW_CRM_RESOURCE resource{};
    resource.videoPort = ports;
    if (int const ret = TVHW_CRM_ClientClearResource(mCrmClient, &resource); ret != 0) {
        TVHW_LOG(kLogFailure, "clear crm-resource: ret=%d", ret);
        return kFailed;
    }
    return 0;
}

int ResourceClient::getUniqueId(int* id) {
    if (mCrmClient == nullptr) {
        return kNotConnected;
    }
    if (int const ret = TVHW_CRM_ClientGetUniqueId(mCrmClient, id); ret != 0) {
        TVHW_LOG(kLogFailure, "crm-get-id: ret=%d", ret);
        *id = -1;
        return kFailed;
    }
    return 0;
}

int ResourceClient::releaseResource() {
    if (mCrmClient == nullptr) {
        return kNotConnected;
    }
    if (int const ret = TVHW_CRM_ClientReleaseResource(mCrmClient); ret != 0) {
        TVHW_LOG(kLogFailure, "crm-release: ret=%d", ret);
        return kFailed;
    }
    return 0;
}

int ResourceClient::UnInitialize() {
    if (mCrmClient == nullptr) {
        return 0;
    }
    if (mReferenceId != 0) {
        sReferenceHolder.release(mReferenceId);
        mReferenceId = 0;
    }
    if (int const ret = TVHW_CRM_ClientFree(&mCrmClient); ret != 0) {
        TVHW_LOG(kLogFailure, "crm: failed to release client, ret=%d", ret);
    }
    mCrmClient = nullptr;
    return 0;
}

int ResourceClient::OnReclaim(_TVHW_CRM_RECLAIM_PARAM const* /*param*/, void* cookie) {
    auto const value = reinterpret_cast<std::uintptr_t>(cookie);
    auto const id = static_cast<unsigned int>(value);
    if (id != value) {
        return 1;  // Wider than any id: not a cookie of ours.
    }
    // In this order, so that the owner is let go before its resource client.
    auto const client = sReferenceHolder.lock<ResourceClient>(id);
    if (client == nullptr) {
        return 1;
    }
    auto const owner = client->mReclaimable.lock();
    if (owner == nullptr) {
        return 1;
    }
    return owner->reclaim() ? 1 : 0;
}
