#include "SystemUtils.h"

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "host/Forever.h"
#include "host/HostPlatform.h"
#include "host/PlatformCall.h"
#include "host/Settings.h"
#include "host/SystemPolicy.h"

namespace kvo::host {

namespace {

/// Set once, as a library is loaded.
std::atomic<SystemPolicy*> gSystemPolicy{nullptr};

struct State {
    std::mutex mutex;
    std::map<std::string, int> properties = settings().properties;
    std::function<bool(int)> policy;
};

bool isAllowed(int pid) {
    std::unique_lock<std::mutex> lock(forever<State>().mutex);
    auto const policy = forever<State>().policy;
    lock.unlock();
    if (policy != nullptr) {
        return policy(pid);
    }
    auto* const system = gSystemPolicy.load();
    return system != nullptr ? system->allowsForcedAcquire(pid) : settings().priorityOf(pid) >= 0;
}

class HostSystemUtils final : public media::platform::SystemUtils {
public:
    HostSystemUtils() = default;

    int getIntProperty(char const* name, int defaultValue) override {
        return PlatformCall("getIntProperty", name, defaultValue).perform([&] {
            std::lock_guard<std::mutex> const lock(forever<State>().mutex);
            auto const& properties = forever<State>().properties;
            auto const property = properties.find(name);
            return property == properties.end() ? defaultValue : property->second;
        });
    }

    bool allowsForcedAcquire(int pid) override {
        PlatformCall call("allowsForcedAcquire", pid);
        int const answer = call.perform([&] { return isAllowed(pid) ? 1 : 0; });
        return !call.fails() && answer != 0;  // Who cannot be asked allows nothing.
    }

    void onProcessReclaimed(int pid) override {
        tell("onProcessReclaimed", &SystemPolicy::onProcessReclaimed, pid);
    }

    void onReclaimedClientReleased(int pid) override {
        tell("onReclaimedClientReleased", &SystemPolicy::onReclaimedClientReleased, pid);
    }

private:
    static void tell(char const* operation, void (SystemPolicy::*tell)(int), int pid) {
        PlatformCall(operation, pid).perform([&] {
            if (auto* const system = gSystemPolicy.load()) {
                (system->*tell)(pid);
            }
            return 0;
        });
    }
};

OnReset const gOnReset([] {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    forever<State>().properties = settings().properties;
    forever<State>().policy = nullptr;
});

}  // namespace

void setProperty(std::string const& name, std::optional<int> value) {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    if (value) {
        forever<State>().properties[name] = *value;
    } else {
        forever<State>().properties.erase(name);
    }
}

void setSystemPolicy(SystemPolicy& policy) { gSystemPolicy = &policy; }

void setForcedAcquirePolicy(std::function<bool(int)> policy) {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    forever<State>().policy = std::move(policy);
}

}  // namespace kvo::host

namespace kvo::media::platform {

SystemUtils& SystemUtils::getInstance() { return host::forever<host::HostSystemUtils>(); }

}  // namespace kvo::media::platform
