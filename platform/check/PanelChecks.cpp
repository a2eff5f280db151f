#include <cstdint>

#include "Check.h"
#include "tvhw_vbe.h"

namespace kvo::check {

namespace {

Outcome panelSize() {
    struct {
        TVHW_VBE_PANEL_SIZE size{0, 0};
        std::int32_t behind = 4711;
    } memory;
    int const result = CALL(TVHW_VBE_DISP_GetPanelSize)(&memory.size);
    TVHW_VBE_PANEL_SIZE again{0, 0};
    int const second = CALL(TVHW_VBE_DISP_GetPanelSize)(&again);
    // A panel of 9,000 lines is yet to be made; a record that was never written, or not whole, is
    // not.
    constexpr int kMost = 65535;
    auto const isSize = [](int pixels) { return pixels > 0 && pixels <= kMost; };
    return outcome(result == 0 && second == 0 && isSize(memory.size.width) &&
                       isSize(memory.size.height) && again.width == memory.size.width &&
                       again.height == memory.size.height && memory.behind == 4711,
                   values({{"result", result},
                           {"width", memory.size.width},
                           {"height", memory.size.height},
                           {"behind the record", memory.behind},
                           {"second result", second},
                           {"width", again.width},
                           {"height", again.height}}));
}

}  // namespace

Checks panelChecks() {
    return {{Level::kMust, "the-panel-has-a-size", "TVHW_VBE_DISP_GetPanelSize, twice",
             "0, and the same size above 0 by 0, with nothing written behind it (4711)",
             panelSize}};
}

}  // namespace kvo::check
