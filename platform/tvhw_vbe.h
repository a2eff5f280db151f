#pragma once

// The video back end's library, libkvo_hal_vbe.

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>

extern "C" {
#else
#include <stddef.h>
#include <stdint.h>
#endif

/// The size of the panel.
typedef struct TVHW_VBE_PANEL_SIZE {
    int32_t width;   ///< Pixels.
    int32_t height;  ///< Pixels.
} TVHW_VBE_PANEL_SIZE;

/// Writes the size of the panel. Returns 0, or an error code and leaves `size` as it was. May be
/// called from any thread.
int TVHW_VBE_DISP_GetPanelSize(TVHW_VBE_PANEL_SIZE* size);

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(TVHW_VBE_PANEL_SIZE) == 8);
static_assert(offsetof(TVHW_VBE_PANEL_SIZE, width) == 0);
static_assert(offsetof(TVHW_VBE_PANEL_SIZE, height) == 4);
#endif
