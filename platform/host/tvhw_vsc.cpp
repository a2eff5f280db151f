#include "tvhw_vsc.h"

#include <array>
#include <cerrno>
#include <mutex>

#include "host/HostPlatform.h"
#include "host/Misuse.h"
#include "host/PlatformCall.h"

namespace kvo::host {

namespace {

bool isFlag(int value) { return value == 0 || value == 1; }

/// The scaler: one for all clients of the process.
class Scaler {
public:
    int initialise() {
        std::lock_guard<std::mutex> const lock(mMutex);
        mInitialised = true;
        return 0;
    }

    int open(unsigned int index) {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (!mInitialised) {
            return -ENXIO;
        }
        if (index >= kScalerChannels) {
            return -EINVAL;
        }
        if (mChannels[index].opened) {
            return -EBUSY;
        }
        mChannels[index].opened = true;
        return 0;
    }

    /// Lets `change`, which returns a result code, change a channel that is open.
    template <typename Change>
    int withChannel(unsigned int index, Change change) {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (!mInitialised) {
            return -ENXIO;
        }
        if (index >= kScalerChannels || !mChannels[index].opened) {
            return -EBADF;
        }
        return change(mChannels[index]);
    }

    ScalerChannel channel(unsigned int index) {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mChannels.at(index);
    }

private:
    std::mutex mMutex;
    bool mInitialised = false;
    std::array<ScalerChannel, kScalerChannels> mChannels;
};

Scaler& scaler() {
    static Scaler& theScaler =
        *new Scaler;  // Never destroyed, as callers may be in static storage.
    return theScaler;
}

bool isSource(TVHW_VSC_SOURCE const& source, std::int32_t reserved) {
    return (source.type == 0 || source.type == 2 || source.type == 3) && source.reserved1 == 0 &&
           source.reserved2[0] == 0 && source.reserved2[1] == 0 && reserved == 0;
}

ScalerChannel::Window toWindow(TVHW_VSC_WINDOW const& window) {
    return {window.x, window.y, window.w, window.h};
}

bool isOnPanel(TVHW_VSC_WINDOW const& window) {
    Panel const current = panel();
    return window.x + window.w <= current.width && window.y + window.h <= current.height;
}

/// Tells when `operation` is given a window that nothing can be seen in.
void tellMisuseOfWindow(char const* operation, TVHW_VSC_WINDOW const& window, bool isPossible) {
    if (isPossible && window.w != 0 && window.h != 0) {
        return;
    }
    tellMisuse(isPossible ? Misuse::kEmptyWindow : Misuse::kOffPanel,
               std::string(operation) + "() with a window of " + std::to_string(window.w) + "x" +
                   std::to_string(window.h) + " at " + std::to_string(window.x) + "," +
                   std::to_string(window.y));
}

/// The port of a source that was made of a port that nobody has.
constexpr std::uint8_t kNoPort = 255;

int setInput(char const* operation, unsigned int index, TVHW_VSC_WINDOW const& window,
             bool inPanelPixels) {
    return PlatformCall(operation, index, window.x, window.y, window.w, window.h).perform([&] {
        bool const isPossible = !inPanelPixels || isOnPanel(window);
        tellMisuseOfWindow(operation, window, isPossible);
        return scaler().withChannel(index, [&](ScalerChannel& channel) {
            if (!isPossible) {
                return -ERANGE;
            }
            channel.input = toWindow(window);
            channel.inputInPanelPixels = inPanelPixels;
            return 0;
        });
    });
}

}  // namespace

ScalerChannel scalerChannel(unsigned int index) { return scaler().channel(index); }

}  // namespace kvo::host

using kvo::host::isFlag;
using kvo::host::isSource;
using kvo::host::PlatformCall;
using kvo::host::scaler;
using kvo::host::ScalerChannel;

extern "C" {

KVO_MEDIA_EXPORT int TVHW_VSC_Initialize() {
    return kvo::host::PlatformCall("TVHW_VSC_Initialize").perform([&] {
        return scaler().initialise();
    });
}

KVO_MEDIA_EXPORT int TVHW_VSC_Open(std::uint32_t channel) {
    return PlatformCall("TVHW_VSC_Open", channel).perform([&] { return scaler().open(channel); });
}

KVO_MEDIA_EXPORT int TVHW_VSC_Close(std::uint32_t channel) {
    return PlatformCall("TVHW_VSC_Close", channel).performAnyhow([&] {
        return scaler().withChannel(channel, [](ScalerChannel& state) {
            state = {};
            return 0;
        });
    });
}

KVO_MEDIA_EXPORT int TVHW_VSC_Connect(std::uint32_t channel, TVHW_VSC_SOURCE source,
                                      std::int32_t reserved) {
    return PlatformCall("TVHW_VSC_Connect", channel, source.type, int{source.port}, reserved)
        .perform([&] {
            if (source.port == kvo::host::kNoPort) {
                kvo::host::tellMisuse(kvo::host::Misuse::kNoPort,
                                      "TVHW_VSC_Connect() to port 255, which is none");
            }
            return scaler().withChannel(channel, [&](ScalerChannel& state) {
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
            return scaler().withChannel(channel, [&](ScalerChannel& state) {
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
        return scaler().withChannel(channel, [&](ScalerChannel& state) {
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
        return scaler().withChannel(channel, [&](ScalerChannel& state) {
            if (!isFlag(blank) || reserved != 0) {
                return -EINVAL;
            }
            state.blank = blank == 1;
            return 0;
        });
    });
}

KVO_MEDIA_EXPORT int TVHW_VSC_SetInputRegion(std::uint32_t channel, TVHW_VSC_WINDOW window) {
    return kvo::host::setInput("TVHW_VSC_SetInputRegion", channel, window, false);
}

KVO_MEDIA_EXPORT int TVHW_VSC_SetInputRegion_ForAdaptive(std::uint32_t channel,
                                                         TVHW_VSC_WINDOW window) {
    return kvo::host::setInput("TVHW_VSC_SetInputRegion_ForAdaptive", channel, window, true);
}

KVO_MEDIA_EXPORT int TVHW_VSC_SetOutputRegion(std::uint32_t channel, TVHW_VSC_WINDOW window) {
    return PlatformCall("TVHW_VSC_SetOutputRegion", channel, window.x, window.y, window.w, window.h)
        .perform([&] {
            bool const isPossible = kvo::host::isOnPanel(window);
            kvo::host::tellMisuseOfWindow("TVHW_VSC_SetOutputRegion", window, isPossible);
            return scaler().withChannel(channel, [&](ScalerChannel& state) {
                if (!isPossible) {
                    return -ERANGE;
                }
                state.output = kvo::host::toWindow(window);
                return 0;
            });
        });
}

}  // extern "C"
