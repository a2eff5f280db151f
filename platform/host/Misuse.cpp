#include "host/Misuse.h"

#include <array>
#include <atomic>
#include <cstdlib>

#include "host/LoggedCall.h"
#include "host/Settings.h"

namespace kvo::host {

namespace {

/// What to do, by kind of mistake.
constexpr std::array<char const*, 13> kAdvice{
    "use a codec after one of its configure operations has succeeded",
    "configure it again, or end the threads that use a codec before you release it",
    "set both to the size of the pictures, which decides what core is asked for",
    "use the names of kvo/media/hardware/ConfigurationKeys.h",
    "release the decoder and configure it, or configure it with adaptive-enable",
    "release a buffer as it was dequeued, or with a port that was granted",
    "let one thread at a time configure a codec",
    "end the threads that use a wrapper before you destroy it",
    "let a codec's release() return, whatever its other calls are doing",
    "destroy every wrapper before the process ends",
    "connect the window after a configuration in tunnel mode, to its key video-port",
    "give the window a size",
    "keep within the panel"};

std::atomic<bool (*)(int)> gPortRegister{nullptr};

}  // namespace

void tellMisuse(Misuse kind, std::string const& what) {
    logLine(kMisuseLevel, kPlatformTag,
            "mistake: " + what + ": " + kAdvice.at(static_cast<std::size_t>(kind)));
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
