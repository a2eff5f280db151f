#pragma once

// The video output's library, libkvo_hal_photo.

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>

extern "C" {
#else
#include <stddef.h>
#include <stdint.h>
#endif

/// The mode of an output that shows still pictures.
enum { TVHW_VO_MODE_STILL = 2 };

/// The pixel format of still pictures.
enum { TVHW_VO_PIXEL_FORMAT_STILL = 5 };

/// How an output shows pictures. Reserved fields are 0.
typedef struct TVHW_VO_CONFIG_PARAM {
    int32_t mode;  ///< TVHW_VO_MODE_STILL.
    int32_t reserved[3];
    int32_t width;        ///< Of the largest picture, in pixels.
    int32_t height;       ///< Of the largest picture, in pixels.
    int32_t pixelFormat;  ///< TVHW_VO_PIXEL_FORMAT_STILL.
} TVHW_VO_CONFIG_PARAM;

/// A picture and its place on the output. Reserved fields are 0.
typedef struct TVHW_VO_PICTURE_PARAM {
    uint32_t buffer;  ///< The platform's reference to the memory with the pixels.
    int32_t reserved[2];
    int32_t bufferLength;  ///< Bytes.
    int32_t stride;        ///< Bytes from one line to the next.
    int32_t x;             ///< Of the left edge, in pixels.
    int32_t y;             ///< Of the top edge, in pixels.
    int32_t width;         ///< Pixels.
    int32_t height;        ///< Pixels.
    int32_t pixelFormat;   ///< TVHW_VO_PIXEL_FORMAT_STILL.
} TVHW_VO_PICTURE_PARAM;

// Each operation returns 0 on success and an error code otherwise, and may be called from any
// thread, TVHW_VO_Open from one at a time. The caller keeps the records.

/// Opens an output, which may be open already: each image sink opens it for itself. The host
/// platform's stays open until it was closed as often as it was opened.
int TVHW_VO_Open(int32_t output, int32_t mode);

/// Closes an output; may come for one that is not open.
int TVHW_VO_Close(int32_t output);

/// Prepares an output for pictures; refuses if it is not open.
int TVHW_VO_Config(int32_t output, TVHW_VO_CONFIG_PARAM const* config);

/// Shows a picture; refuses if the output was not prepared for it.
int TVHW_VO_DisplayPicture(int32_t output, TVHW_VO_PICTURE_PARAM const* picture);

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(TVHW_VO_CONFIG_PARAM) == 28);
static_assert(offsetof(TVHW_VO_CONFIG_PARAM, mode) == 0);
static_assert(offsetof(TVHW_VO_CONFIG_PARAM, width) == 16);
static_assert(offsetof(TVHW_VO_CONFIG_PARAM, height) == 20);
static_assert(offsetof(TVHW_VO_CONFIG_PARAM, pixelFormat) == 24);
static_assert(sizeof(TVHW_VO_PICTURE_PARAM) == 40);
static_assert(offsetof(TVHW_VO_PICTURE_PARAM, buffer) == 0);
static_assert(offsetof(TVHW_VO_PICTURE_PARAM, bufferLength) == 12);
static_assert(offsetof(TVHW_VO_PICTURE_PARAM, stride) == 16);
static_assert(offsetof(TVHW_VO_PICTURE_PARAM, x) == 20);
static_assert(offsetof(TVHW_VO_PICTURE_PARAM, y) == 24);
static_assert(offsetof(TVHW_VO_PICTURE_PARAM, width) == 28);
static_assert(offsetof(TVHW_VO_PICTURE_PARAM, height) == 32);
static_assert(offsetof(TVHW_VO_PICTURE_PARAM, pixelFormat) == 36);
#endif
