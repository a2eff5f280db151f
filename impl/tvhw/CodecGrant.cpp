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

int CodecGrant::readBack(LogSite const& site, std::int32_t& port) {
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

    int id = mResourceId.load(std::memory_order_relaxed);
    int const ret = mResourceClient->getUniqueId(&id);
    mResourceId.store(id, std::memory_order_relaxed);
    if (ret != 0) {
        mVdoPort.store(grantedPort, std::memory_order_relaxed);
        TVHW_LOG_AT(site, kLogFailure, "get resource id fail");
        return -1;
    }
    TVHW_LOG_AT(site, kLogState, "resource id %d", id);
    port = portIndex(grantedPort);
    return 0;
}

void CodecGrant::giveBack() {
    releaseResources(mResourceClient);
    mResourceClient = nullptr;
    mResourceId.store(-1, std::memory_order_relaxed);
    mCoreType = 0;
    mVdoPort.store(-1, std::memory_order_relaxed);
    forgetSizes();
}
