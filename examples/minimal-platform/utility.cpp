// What the platform knows of processes, and its properties: here those of the environment.

#include <cstdlib>

#include "SystemUtils.h"

namespace kvo::media::platform {

namespace {

class MinimalSystemUtils final : public SystemUtils {
    int getIntProperty(char const* name, int defaultValue) override {
        char const* const value = std::getenv(name);
        return value == nullptr ? defaultValue : std::atoi(value);
    }

    bool allowsForcedAcquire(int) override { return true; }

    void onProcessReclaimed(int) override {}

    void onReclaimedClientReleased(int) override {}
};

}  // namespace

SystemUtils& SystemUtils::getInstance() {
    static auto& theInstance = *new MinimalSystemUtils;
    return theInstance;
}

}  // namespace kvo::media::platform
