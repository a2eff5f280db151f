#pragma once

#include "kvo/media/hardware/Export.h"

namespace kvo::host {

/// Who decides about processes in place of this process's own SystemUtils: the service, when its
/// client library is loaded. The operations are those of SystemUtils of the same names.
class SystemPolicy {
public:
    SystemPolicy(SystemPolicy const&) = delete;
    SystemPolicy& operator=(SystemPolicy const&) = delete;

    virtual bool allowsForcedAcquire(int pid) = 0;
    virtual void onProcessReclaimed(int pid) = 0;
    virtual void onReclaimedClientReleased(int pid) = 0;

protected:
    SystemPolicy() = default;
    ~SystemPolicy() = default;
};

/// Hands the decisions to `policy` for good. For a library that is being loaded.
KVO_MEDIA_EXPORT void setSystemPolicy(SystemPolicy& policy);

}  // namespace kvo::host
