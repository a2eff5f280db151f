#include "SystemUtils.h"

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "host/HostPlatform.h"
#include "host/PlatformCall.h"
#include "host/Settings.h"
#include "host/SystemPolicy.h"

namespace kvo::host {

namespace {

/// Set once, as a library is loaded.
std::atomic<SystemPolicy*> gSystemPolicy{nullptr};

class HostSystemUtils final : public media::platform::SystemUtils {
public:
    HostSystemUtils() = default;

    int getIntProperty(char const* name, int defaultValue) override {
        return PlatformCall("getIntProperty", name, defaultValue).perform([&] {
            std::lock_guard<std::mutex> const lock(mMutex);
            auto const property = mProperties.find(name);
            return property == mProperties.end() ? defaultValue : property->second;
        });
    }

    bool allowsForcedAcquire(int pid) override {
        PlatformCall call("allowsForcedAcquire", pid);
        int const answer = call.perform([&] { return isAllowed(pid) ? 1 : 0; });
        return !call.fails() && answer != 0;  // Who cannot be asked allows nothing.
    }

    void onProcessReclaimed(int pid) override {
        PlatformCall("onProcessReclaimed", pid).perform([&] {
            if (auto* const system = gSystemPolicy.load()) {
                system->onProcessReclaimed(pid);
            }
            return 0;
        });
    }

    void onReclaimedClientReleased(int pid) override {
        PlatformCall("onReclaimedClientReleased", pid).perform([&] {
            if (auto* const system = gSystemPolicy.load()) {
                system->onReclaimedClientReleased(pid);
            }
            return 0;
        });
    }

    void setProperty(std::string const& name, std::optional<int> value) {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (value) {
            mProperties[name] = *value;
        } else {
            mProperties.erase(name);
        }
    }

    void setPolicy(std::function<bool(int)> policy) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mPolicy = std::move(policy);
    }

    void reset() {
        std::lock_guard<std::mutex> const lock(mMutex);
        mProperties = settings().properties;
        mPolicy = nullptr;
    }

private:
    bool isAllowed(int pid) {
        std::function<bool(int)> policy;
        {
            std::lock_guard<std::mutex> const lock(mMutex);
            policy = mPolicy;
        }
        if (policy != nullptr) {
            return policy(pid);
        }
        if (auto* const system = gSystemPolicy.load()) {
            return system->allowsForcedAcquire(pid);
        }
        return settings().priorityOf(pid) >= 0;
    }

    std::mutex mMutex;
    std::map<std::string, int> mProperties = settings().properties;
    std::function<bool(int)> mPolicy;
};

HostSystemUtils& instance() {
    // Never destroyed, as callers may be in static storage.
    static HostSystemUtils& theInstance = *new HostSystemUtils;
    return theInstance;
}

[[maybe_unused]] bool const gResets = [] {
    onReset([] { instance().reset(); });
    return true;
}();

}  // namespace

void setProperty(std::string const& name, std::optional<int> value) {
    instance().setProperty(name, value);
}

void setSystemPolicy(SystemPolicy& policy) { gSystemPolicy = &policy; }

void setForcedAcquirePolicy(std::function<bool(int)> policy) {
    instance().setPolicy(std::move(policy));
}

}  // namespace kvo::host

namespace kvo::media::platform {

SystemUtils& SystemUtils::getInstance() { return host::instance(); }

}  // namespace kvo::media::platform
