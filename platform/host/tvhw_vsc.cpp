#include "tvhw_vsc.h"

#include <array>
#include <cerrno>
#include <mutex>
#include <string>
#include <utility>

#include "host/Forever.h"
#include "host/HostPlatform.h"
#include "host/Misuse.h"
#include "host/PlatformCall.h"

namespace kvo::host {

namespace {

/// The scaler: one for all clients of the process.
struct Scaler {
    std::mutex mutex;
    bool isInitialised = false;
    std::array<ScalerChannel, kScalerChannels> channels;
};

/// Lets `change`, which returns a result code, change a channel that is open.
template <typename Change>
int changeChannel(unsigned int index, Change const& change) {
    auto& scaler = forever<Scaler>();
    std::lock_guard<std::mutex> const lock(scaler.mutex);
    if (!scaler.isInitialised) {
        return -ENXIO;
    }
    if (index >= kScalerChannels || !scaler.channels[index].opened) {
        return -EBADF;
    }
    return change(scaler.channels[index]);
}

bool isFlag(int value) { return value == 0 || value == 1; }

bool isSource(TVHW_VSC_SOURCE const& source, std::int32_t reserved) {
    return (source.type == 0 || source.type == 2 || source.type == 3) && source.reserved1 == 0 &&
           source.reserved2[0] == 0 && source.reserved2[1] == 0 && reserved == 0;
}

/// The port of a source that was made of a port that nobody has.
constexpr std::uint8_t kNoPort = 255;

/// A window that is set by a call of `operation`, which `set` notes in the channel.
template <typename Set>
int setWindow(char const* operation, unsigned int index, TVHW_VSC_WINDOW const& window,
              bool isOnPanel, Set const& set) {
    return PlatformCall(operation, index, window.x, window.y, window.w, window.h).perform([&] {
        Panel const current = panel();
        bool const isPossible = !isOnPanel || (window.x + window.w <= current.width &&
                                               window.y + window.h <= current.height);
        bool const isOffKnownPanel = !isPossible && panelIsKnown();
        if (isOffKnownPanel || window.w == 0 || window.h == 0) {
            tellMisuse(std::string(operation) + "() with a window of " + std::to_string(window.w) +
                           "x" + std::to_string(window.h) + " at " + std::to_string(window.x) +
                           "," + std::to_string(window.y),
                       isOffKnownPanel ? "keep within the panel" : "give the window a size");
        }
        return changeChannel(index, [&](ScalerChannel& channel) {
            if (!isPossible) {
                return -ERANGE;
            }
            set(channel, ScalerChannel::Window{window.x, window.y, window.w, window.h});
            return 0;
        });
    });
}

int setInput(char const* operation, unsigned int index, TVHW_VSC_WINDOW const& window,
             bool isInPanelPixels) {
    auto const set = [&](ScalerChannel& channel, ScalerChannel::Window const& input) {
        channel.input = input;
        channel.inputInPanelPixels = isInPanelPixels;
    };
    return setWindow(operation, index, window, isInPanelPixels, set);
}

}  // namespace

ScalerChannel scalerChannel(unsigned int index) {
    std::lock_guard<std::mutex> const lock(forever<Scaler>().mutex);
    return forever<Scaler>().channels.at(index);
}

extern "C" {

KVO_MEDIA_EXPORT int TVHW_VSC_Initialize() {
    return PlatformCall("TVHW_VSC_Initialize").perform([&] {
        std::lock_guard<std::mutex> const lock(forever<Scaler>().mutex);
        forever<Scaler>().isInitialised = true;
        return 0;
    });
}

KVO_MEDIA_EXPORT int TVHW_VSC_Open(std::uint32_t channel) {
    return PlatformCall("TVHW_VSC_Open", channel).perform([&] {
        auto& scaler = forever<Scaler>();
        std::lock_guard<std::mutex> const lock(scaler.mutex);
        if (!scaler.isInitialised) {
            return -ENXIO;
        }
        if (channel >= kScalerChannels) {
            return -EINVAL;
        }
        return std::exchange(scaler.channels[channel].opened, true) ? -EBUSY : 0;
    });
}

KVO_MEDIA_EXPORT int TVHW_VSC_Close(std::uint32_t channel) {
    return PlatformCall("TVHW_VSC_Close", channel).performAnyhow([&] {
        return changeChannel(channel, [](ScalerChannel& state) {
            state = {};
            return 0;
        });
    });
}

KVO_MEDIA_EXPORT int TVHW_VSC_Connect(std::uint32_t channel, TVHW_VSC_SOURCE source,
                                      std::int32_t reserved) {
    return PlatformCall("TVHW_VSC_Connect", channel, source.type, int{source.port}, reserved)
        .perform([&] {
            if (source.port == kNoPort) {
                tellMisuse("TVHW_VSC_Connect() to port 255, which is none",
                           "connect the window after a configuration in tunnel mode, to its key "
                           "video-port");
            }
            return changeChannel(channel, [&](ScalerChannel& state) {
                if (!isSource(source, reserved)) {
                    return -EINVAL;
                }
                state.source = {source.type, source.port};
                return 0;
            });
        });
}

KVO_MEDIA_EXPORT int TVHW_VSC_Disconnect(std::uint32_t channel, TVHW_VSC_SOURCE source,
                                         std::int32_t reserved) {
    return PlatformCall("TVHW_VSC_Disconnect", channel, source.type, int{source.port}, reserved)
        .perform([&] {
            return changeChannel(channel, [&](ScalerChannel& state) {
                if (!isSource(source, reserved)) {
                    return -EINVAL;
                }
                if (!state.source || state.source->type != source.type ||
                    state.source->port != source.port) {
                    return -ENOTCONN;
                }
                state.source.reset();
                return 0;
            });
        });
}

KVO_MEDIA_EXPORT int TVHW_VSC_SetAdaptiveStreamEx(std::uint32_t channel, std::int32_t adaptive) {
    return PlatformCall("TVHW_VSC_SetAdaptiveStreamEx", channel, adaptive).perform([&] {
        return changeChannel(channel, [&](ScalerChannel& state) {
            if (!isFlag(adaptive)) {
                return -EINVAL;
            }
            state.adaptive = adaptive == 1;
            return 0;
        });
    });
}

KVO_MEDIA_EXPORT int TVHW_VSC_SetWinBlank(std::uint32_t channel, std::int32_t blank,
                                          std::int32_t reserved) {
    return PlatformCall("TVHW_VSC_SetWinBlank", channel, blank, reserved).perform([&] {
        return changeChannel(channel, [&](ScalerChannel& state) {
            if (!isFlag(blank) || reserved != 0) {
                return -EINVAL;
            }
            state.blank = blank == 1;
            return 0;
        });
    });
}

KVO_MEDIA_EXPORT int TVHW_VSC_SetInputRegion(std::uint32_t channel, TVHW_VSC_WINDOW window) {
    return setInput("TVHW_VSC_SetInputRegion", channel, window, false);
}

KVO_MEDIA_EXPORT int TVHW_VSC_SetInputRegion_ForAdaptive(std::uint32_t channel,
                                                         TVHW_VSC_WINDOW window) {
    return setInput("TVHW_VSC_SetInputRegion_ForAdaptive", channel, window, true);
}

KVO_MEDIA_EXPORT int TVHW_VSC_SetOutputRegion(std::uint32_t channel, TVHW_VSC_WINDOW window) {
    return setWindow(
        "TVHW_VSC_SetOutputRegion", channel, window, true,
        [](ScalerChannel& state, ScalerChannel::Window const& output) { state.output = output; });
}

}  // extern "C"

}  // namespace kvo::host
