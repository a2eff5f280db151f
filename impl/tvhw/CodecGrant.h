#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "Log.h"
#include "ResourceClient.h"

/// A value that threads share by itself: a reader sees an old value or the last one, and learns
/// nothing else from it. No lock, and the size of a T.
template <typename T>
class Relaxed {
public:
    explicit constexpr Relaxed(T value) : mValue(value) {}

    [[nodiscard]] T load() const { return mValue.load(std::memory_order_relaxed); }
    void store(T value) { mValue.store(value, std::memory_order_relaxed); }

private:
    std::atomic<T> mValue;
    static_assert(sizeof(std::atomic<T>) == sizeof(T) && std::atomic<T>::is_always_lock_free);
};

/// What a codec wrapper holds of the resource manager. The owner's thread acquires and gives back.
/// Threads that use the codec meanwhile read the relaxed fields, and write a decoder's learned
/// port.
struct CodecGrant {
    /// A core to ask for; see ResourceClient::acquireResource().
    struct Request {
        char const* mime;
        std::int32_t width;
        std::int32_t height;
        std::int32_t frameRate;
        bool isEncoder;
        bool tryOnly;
    };

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

    /// Requests a core through mResourceClient, which must be set, and reads what was granted into
    /// the fields below it. With a port, first sets `portGranted`, unless null, to 1. Logs on
    /// behalf of `site`, with that one line number. Returns 0, or -1 with the fields filled up to
    /// the call that failed; when it was the id's, mVdoPort is left as the manager numbers it.
    int acquire(LogSite const& site, Request const& request, Relaxed<std::int32_t>* portGranted);

    /// Gives everything back, closes and drops mResourceClient, which must be set, and returns the
    /// fields to their initial values.
    void giveBack();

    std::shared_ptr<ResourceClient> mResourceClient;
    Relaxed<std::int32_t> mResourceId{-1};  ///< The resource client's unique id; -1 if unknown.
    std::int32_t mCoreType = 0;             ///< 801 to 804; 0 for no core or an unknown one.
    Relaxed<std::int32_t> mVdoPort{-1};     ///< Display port from 0; -1 for none. See acquire().
    std::int32_t mMaxWidth = -1;            ///< Largest width of the core in pixels; -1 if unknown.
    std::int32_t mMaxHeight = -1;           ///< As mMaxWidth.
};
