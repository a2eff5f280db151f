#pragma once

#include "kvo/media/hardware/Export.h"

namespace kvo::media::platform {

/// What the platform knows and decides about processes and the system, in libkvo_media_utils. All
/// operations may be called from any thread. The order of the operations is the order of the
/// virtual table: compare it with the platform's own header, which may have others in between.
class KVO_MEDIA_EXPORT SystemUtils {
public:
    SystemUtils(SystemUtils const&) = delete;
    SystemUtils& operator=(SystemUtils const&) = delete;

    /// Returns the one object of the process.
    static SystemUtils& getInstance();

    /// Returns the integer value of a system property, or `defaultValue` when it is not set.
    virtual int getIntProperty(char const* name, int defaultValue) = 0;

    /// Says whether a decoder of process `pid` asks for its core in the plain form (true) or in the
    /// try form. This and the operations below are called only for a process id of at least 1.
    virtual bool allowsForcedAcquire(int pid) = 0;

    /// Learns that the decoder of process `pid` was stopped because its core was reclaimed. Comes
    /// once from each of several reclaims that overlap. Comes for a decoder that is reclaimed
    /// before its first acquisition is complete only if that completes before the reclaim has
    /// released the codec. Comes before the reclaim is answered.
    virtual void onProcessReclaimed(int pid) = 0;

    /// Learns that process `pid` has released a decoder that was stopped by a reclaim: comes for
    /// each release() and once more for the destructor. What the decoder still holds goes after
    /// the last. Called with the decoder locked: must not call the decoder.
    virtual void onReclaimedClientReleased(int pid) = 0;

protected:
    SystemUtils() = default;
    ~SystemUtils() = default;
};

}  // namespace kvo::media::platform
