#include "CodecGrant.h"

#include <array>

namespace {

/// Indexed by the resource manager's core type less 1. Not in ascending order.
constexpr std::array<std::int32_t, 4> kCoreTypes{801, 802, 804, 803};

}  // namespace

void CodecGrant::forgetSizes() {
    mMaxWidth = -1;
    mMaxHeight = -1;
}

int CodecGrant::acquire(LogSite const& site, Request const& request,
                        Relaxed<std::int32_t>* portGranted) {
    if (mResourceClient->acquireResource(request.mime, request.width, request.height,
                                         request.frameRate, request.isEncoder, false,
                                         request.tryOnly) != 0) {
        TVHW_LOG_AT(site, kLogRefused, "acquire resource fail");
        forgetSizes();
        return -1;
    }
    int core = 0;
    int grantedPort = 0;
    if (mResourceClient->getResource(&core, &grantedPort, &mMaxWidth, &mMaxHeight) != 0) {
        TVHW_LOG_AT(site, kLogRefused, "get resource fail");
        return -1;
    }
    if (core >= 1 && core <= static_cast<int>(kCoreTypes.size())) {
        mCoreType = kCoreTypes[static_cast<std::size_t>(core) - 1];
    } else {
        TVHW_LOG_AT(site, kLogDetail, "get unknown core_type: %u", core);
        mCoreType = 0;
    }
    TVHW_LOG_AT(site, kLogState, "core_type: %u", mCoreType);

    int id = mResourceId.load();
    int const ret = mResourceClient->getUniqueId(&id);
    mResourceId.store(id);
    if (ret != 0) {
        mVdoPort.store(grantedPort);
        TVHW_LOG_AT(site, kLogFailure, "get resource id fail");
        return -1;
    }
    TVHW_LOG_AT(site, kLogState, "resource id %d", id);

    // Threads that use the codec meanwhile must never see the manager's own number.
    std::int32_t const port = portIndex(grantedPort);
    if (port < 0) {
        TVHW_LOG_AT(site, kLogState, "acquireResource vdoPort=TVHW_CRM_VIDEO_PORT_NONE");
        mVdoPort.store(-1);
        return 0;
    }
    if (portGranted != nullptr) {
        portGranted->store(1);
    }
    mVdoPort.store(port);
    TVHW_LOG_AT(site, kLogState, "vdoPort=%d", port);
    return 0;
}

void CodecGrant::giveBack() {
    releaseResources(mResourceClient);
    mResourceClient = nullptr;
    mResourceId.store(-1);
    mCoreType = 0;
    mVdoPort.store(-1);
    forgetSizes();
}
