// The panel: of a fixed size.

#include "tvhw_vbe.h"

int TVHW_VBE_DISP_GetPanelSize(TVHW_VBE_PANEL_SIZE* size) {
    size->width = 3840;
    size->height = 2160;
    return 0;
}
