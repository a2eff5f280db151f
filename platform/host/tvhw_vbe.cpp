#include "tvhw_vbe.h"

#include <cerrno>
#include <mutex>

#include "host/Forever.h"
#include "host/HostPlatform.h"
#include "host/PlatformCall.h"
#include "host/Settings.h"

namespace kvo::host {

namespace {

struct State {
    std::mutex mutex;
    Panel panel = settings().panel;
    bool isKnown = false;  ///< To who asked last.
};

OnReset const gOnReset([] { setPanel(settings().panel); });

}  // namespace

void setPanel(Panel panel) {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    forever<State>().panel = panel;
    forever<State>().isKnown = false;
}

Panel panel() {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    return forever<State>().panel;
}

bool panelIsKnown() {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    return forever<State>().isKnown;
}

extern "C" KVO_MEDIA_EXPORT int TVHW_VBE_DISP_GetPanelSize(TVHW_VBE_PANEL_SIZE* size) {
    int const result = PlatformCall("TVHW_VBE_DISP_GetPanelSize").perform([&] {
        Panel const current = panel();
        if (size == nullptr) {
            return -EINVAL;
        }
        if (!current.readable) {
            return -ENODATA;
        }
        *size = {current.width, current.height};
        return 0;
    });
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    forever<State>().isKnown = result == 0;
    return result;
}

}  // namespace kvo::host
