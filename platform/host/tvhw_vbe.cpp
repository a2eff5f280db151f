#include "tvhw_vbe.h"

#include <cerrno>
#include <mutex>

#include "host/HostPlatform.h"
#include "host/PlatformCall.h"
#include "host/Settings.h"

namespace kvo::host {

namespace {

struct State {
    std::mutex mutex;
    Panel panel = settings().panel;
};

State& state() {
    static State& theState = *new State;  // Never destroyed, as callers may be in static storage.
    return theState;
}

[[maybe_unused]] bool const gResets = [] {
    onReset([] { setPanel(settings().panel); });
    return true;
}();

}  // namespace

void setPanel(Panel panel) {
    std::lock_guard<std::mutex> const lock(state().mutex);
    state().panel = panel;
}

Panel panel() {
    std::lock_guard<std::mutex> const lock(state().mutex);
    return state().panel;
}

}  // namespace kvo::host

extern "C" KVO_MEDIA_EXPORT int TVHW_VBE_DISP_GetPanelSize(TVHW_VBE_PANEL_SIZE* size) {
    return kvo::host::PlatformCall("TVHW_VBE_DISP_GetPanelSize").perform([&] {
        kvo::host::Panel const panel = kvo::host::panel();
        if (size == nullptr) {
            return -EINVAL;
        }
        if (!panel.readable) {
            return -ENODATA;
        }
        *size = {panel.width, panel.height};
        return 0;
    });
}
