#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "Log.h"
#include "ResourceClient.h"

/// What a codec wrapper holds of the resource manager. The owner's thread acquires and gives back.
/// Threads that use the codec meanwhile read the atomic fields, and write a decoder's learned port.
struct CodecGrant {
    /// Returns the index, from 0, of a port as the resource manager grants it; -1 for none.
    static constexpr std::int32_t portIndex(std::int32_t grantedPort) {
        return grantedPort < 1 ? -1 : grantedPort - 1;
    }

    /// Returns the port with this index, from 0 to ResourceClient::sMaxVdoPort - 1, as a clear
    /// request names it.
    static constexpr _TVHW_CRM_VIDEO_PORT portBit(std::int32_t index) {
        return static_cast<_TVHW_CRM_VIDEO_PORT>(1 << index);
    }

    /// Notes that nothing could be requested.
    void forgetSizes();

    /// Reads what mResourceClient was granted into the fields below it, and the index of the
    /// granted port (-1 for none) into `port`, for the caller to publish in mVdoPort: threads that
    /// use the codec meanwhile must never see the manager's own number. Logs on behalf of `site`,
    /// with that one line number. Returns 0, or -1 with the fields filled up to the call that
    /// failed and `port` untouched; when it was the id's, mVdoPort is left as the manager numbers
    /// it.
    int readBack(LogSite const& site, std::int32_t& port);

    /// Gives everything back, closes and drops mResourceClient, which must be set, and returns the
    /// fields to their initial values.
    void giveBack();

    std::shared_ptr<ResourceClient> mResourceClient;
    std::atomic<std::int32_t> mResourceId{-1};  ///< The resource client's unique id; -1 if unknown.
    std::int32_t mCoreType = 0;                 ///< 801 to 804; 0 for no core or an unknown one.
    std::atomic<std::int32_t> mVdoPort{-1};  ///< Display port from 0; -1 for none. See readBack().
    std::int32_t mMaxWidth = -1;   ///< Largest width of the core in pixels; -1 if unknown.
    std::int32_t mMaxHeight = -1;  ///< As mMaxWidth.
};

static_assert(sizeof(std::atomic<std::int32_t>) == sizeof(std::int32_t));
