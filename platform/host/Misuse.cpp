#include "host/Misuse.h"

#include <atomic>
#include <cstdlib>

#include "host/LoggedCall.h"
#include "host/Settings.h"

namespace kvo::host {

namespace {

std::atomic<bool (*)(int)> gPortRegister{nullptr};

}  // namespace

void tellMisuse(std::string const& what, char const* advice) {
    logLine(kMisuseLevel, kPlatformTag, "mistake: " + what + ": " + advice);
    if (settings().abortsOnMisuse) {
        std::abort();
    }
}

void setPortRegister(bool (*isHeld)(int port)) { gPortRegister.store(isHeld); }

bool isPortHeld(int port) {
    auto* const isHeld = gPortRegister.load();
    return isHeld == nullptr || isHeld(port);
}

}  // namespace kvo::host
