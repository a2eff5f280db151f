#include "SystemUtils.h"

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "host/HostPlatform.h"
#include "host/PlatformCall.h"

namespace kvo::host {

namespace {

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
        int const answer = call.perform([&] {
            std::function<bool(int)> policy;
            {
                std::lock_guard<std::mutex> const lock(mMutex);
                policy = mPolicy;
            }
            return policy == nullptr || policy(pid) ? 1 : 0;
        });
        return !call.fails() && answer != 0;  // Who cannot be asked allows nothing.
    }

    void onProcessReclaimed(int pid) override {
        PlatformCall("onProcessReclaimed", pid).perform([] { return 0; });
    }

    void onReclaimedClientReleased(int pid) override {
        PlatformCall("onReclaimedClientReleased", pid).perform([] { return 0; });
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
        mProperties.clear();
        mPolicy = nullptr;
    }

private:
    std::mutex mMutex;
    std::map<std::string, int> mProperties;
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

void setForcedAcquirePolicy(std::function<bool(int)> policy) {
    instance().setPolicy(std::move(policy));
}

}  // namespace kvo::host

namespace kvo::media::platform {

SystemUtils& SystemUtils::getInstance() { return host::instance(); }

}  // namespace kvo::media::platform
