#pragma once

#include "kvo/media/hardware/Export.h"

namespace kvo::media::platform {

/// What the platform knows and decides about processes and the system, in libkvo_media_utils. All
/// operations may be called from any thread. The order of the operations is the order of the
/// virtual table.
class KVO_MEDIA_EXPORT SystemUtils {
public:
    SystemUtils(SystemUtils const&) = delete;
    SystemUtils& operator=(SystemUtils const&) = delete;

    /// Returns the one object of the process.
    static SystemUtils& getInstance();

    /// Returns the integer value of a system property, or `defaultValue` when it is not set.
    virtual int getIntProperty(char const* name, int defaultValue) = 0;

    /// Says whether process `pid` may take a codec core that another client holds.
    virtual bool allowsForcedAcquire(int pid) = 0;

    /// Learns that the decoder of process `pid` was stopped because its core was reclaimed.
    virtual void onProcessReclaimed(int pid) = 0;

    /// Learns that process `pid` has released a decoder that was stopped by a reclaim. Called with
    /// the decoder locked: must not call the decoder.
    virtual void onReclaimedClientReleased(int pid) = 0;

protected:
    SystemUtils() = default;
    ~SystemUtils() = default;
};

}  // namespace kvo::media::platform
