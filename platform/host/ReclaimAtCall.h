#pragma once

#include <atomic>

#include "kvo/media/hardware/Export.h"

/// The reclaim that KVO_HOST_RECLAIM asks for: of the core that the process holds, at a call of the
/// platform or of a codec that is chosen by its operation and number.
namespace kvo::host {

/// Says whether such a reclaim is still to come.
KVO_MEDIA_EXPORT extern std::atomic<bool> reclaimIsToCome;

/// Sets who can reclaim from a client that holds a core, on the calling thread.
/// Called once, as a library is loaded.
KVO_MEDIA_EXPORT void setReclaimer(void (*reclaim)());

/// A call, for as long as it lasts, at which a core may be reclaimed. The reclaim runs on a thread
/// of its own. Before and after the call it is given 50 ms to end: it cannot while it waits for
/// this very call to leave the codec.
class KVO_MEDIA_EXPORT ReclaimAtCall {
public:
    explicit ReclaimAtCall(char const* operation) {
        if (reclaimIsToCome.load(std::memory_order_relaxed)) {
            enter(operation);
        }
    }
    ~ReclaimAtCall() {
        if (mComesAfter) {
            leave();
        }
    }
    ReclaimAtCall(ReclaimAtCall const&) = delete;
    ReclaimAtCall& operator=(ReclaimAtCall const&) = delete;

private:
    void enter(char const* operation);
    static void leave();

    bool mComesAfter = false;
};

}  // namespace kvo::host
