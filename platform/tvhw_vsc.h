#pragma once

// The video scaler's library, libkvo_hal_vsc.

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>

extern "C" {
#else
#include <stddef.h>
#include <stdint.h>
#endif

/// A video source, passed by value.
typedef struct TVHW_VSC_SOURCE {
    int32_t type;  ///< The scaler's own code of the kind of source: 0, 2 or 3.
    uint8_t reserved1;
    uint8_t port;
    uint8_t reserved2[2];
} TVHW_VSC_SOURCE;

/// A rectangle in pixels, passed by value.
typedef struct TVHW_VSC_WINDOW {
    uint16_t x;
    uint16_t y;
    uint16_t w;
    uint16_t h;
} TVHW_VSC_WINDOW;

// Each operation returns 0 on success and an error code otherwise. Different channels may be used
// from different threads; the operations of one channel come one at a time, if one scaler client
// uses it. Reserved fields and arguments are 0.

/// Prepares the scaler for the process; every other operation needs it. Once is enough for good.
int TVHW_VSC_Initialize();

/// Opens a channel; every operation below needs it. The host platform's refuses a channel that is
/// open.
int TVHW_VSC_Open(uint32_t channel);

/// Closes a channel, in whatever state it is.
int TVHW_VSC_Close(uint32_t channel);

/// Connects a source to a channel, in place of one that is connected.
int TVHW_VSC_Connect(uint32_t channel, TVHW_VSC_SOURCE source, int32_t reserved);

/// Disconnects a source. May come for one that is not connected, which the host platform's refuses.
int TVHW_VSC_Disconnect(uint32_t channel, TVHW_VSC_SOURCE source, int32_t reserved);

/// Tells whether (1) or not (0) the picture size of the source changes while it plays.
int TVHW_VSC_SetAdaptiveStreamEx(uint32_t channel, int32_t adaptive);

/// Blanks (1) or shows (0) the window.
int TVHW_VSC_SetWinBlank(uint32_t channel, int32_t blank, int32_t reserved);

/// Selects the part of the source picture to show, in pixels of the source.
int TVHW_VSC_SetInputRegion(uint32_t channel, TVHW_VSC_WINDOW window);

/// Selects the part of an adaptive source's picture to show, as if the picture, whatever its size
/// at the moment, filled the panel: in pixels of the panel, if its size is known.
int TVHW_VSC_SetInputRegion_ForAdaptive(uint32_t channel, TVHW_VSC_WINDOW window);

/// Places the window on the panel, in pixels of the panel, if its size is known.
int TVHW_VSC_SetOutputRegion(uint32_t channel, TVHW_VSC_WINDOW window);

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(TVHW_VSC_SOURCE) == 8);
static_assert(offsetof(TVHW_VSC_SOURCE, type) == 0);
static_assert(offsetof(TVHW_VSC_SOURCE, port) == 5);
static_assert(sizeof(TVHW_VSC_WINDOW) == 8);
static_assert(offsetof(TVHW_VSC_WINDOW, x) == 0);
static_assert(offsetof(TVHW_VSC_WINDOW, y) == 2);
static_assert(offsetof(TVHW_VSC_WINDOW, w) == 4);
static_assert(offsetof(TVHW_VSC_WINDOW, h) == 6);
#endif
