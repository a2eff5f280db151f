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
    constexpr int kMost = 65535;  // More is a record that was not written, or not whole.
    auto const isSize = [](int pixels) { return pixels > 0 && pixels <= kMost; };
    Outcome same = areEqual({{"result", result},
                             {"width", again.width, memory.size.width},
                             {"height", again.height, memory.size.height},
                             {"behind the record", memory.behind, 4711},
                             {"second result", second}});
    if (!isSize(again.width) || !isSize(again.height)) {
        same.kind = Outcome::Kind::kFailed;
    }
    return same;
}

}  // namespace

Checks panelChecks() {
    return {{Level::kMust, "the-panel-has-a-size", "TVHW_VBE_DISP_GetPanelSize, twice",
             "0, and the same size above 0 by 0, with nothing written behind it (4711)",
             panelSize}};
}

}  // namespace kvo::check
