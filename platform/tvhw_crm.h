#pragma once

// The resource manager's client library, libkvo_hal_crm.

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>

extern "C" {
#else
#include <stddef.h>
#include <stdint.h>
#endif

/// One client connection; null is no connection.
typedef struct TVHW_CRM_CLIENT* TVHW_CRM_HANDLE;

/// A set of display ports. A grant names one of them, a clear request any.
// NOLINTNEXTLINE(bugprone-reserved-identifier): part of mangled names.
typedef enum _TVHW_CRM_VIDEO_PORT {
    TVHW_CRM_VIDEO_PORT_NONE = 0,
    TVHW_CRM_VIDEO_PORT_0 = 1,
    TVHW_CRM_VIDEO_PORT_1 = 2,
    TVHW_CRM_VIDEO_PORT_ALL = 3,
} TVHW_CRM_VIDEO_PORT;

/// The codec type of a request for a display port instead of a codec core.
enum { TVHW_CRM_CODEC_TYPE_DISPLAY = 0x4001 };

/// A request for a codec core or a display port. Unused fields are 0.
typedef struct TVHW_CRM_ACQUIRE_PARAM {
    int32_t codecType;  ///< From TVHW_CRM_CodecTypeFromMIME, or TVHW_CRM_CODEC_TYPE_DISPLAY.
    int32_t width;      ///< Pixels.
    int32_t height;     ///< Pixels.
    int32_t frameRate;  ///< Frames per second.
    int32_t isEncoder;  ///< 0 or 1.
    int32_t extraFlag;  ///< 0 or 1.
    int32_t reserved[10];
} TVHW_CRM_ACQUIRE_PARAM;

/// What a client holds, a core and a port at once if need be, or, in a clear request, the display
/// ports to clear.
typedef struct TVHW_CRM_RESOURCE {
    int32_t core;       ///< Type of the codec core, 1 to 4; any other is unknown.
    int32_t videoPort;  ///< TVHW_CRM_VIDEO_PORT; below 1 when no port is held.
    int32_t reserved1[2];
    int32_t maxWidth;   ///< Largest picture width of the core, in pixels.
    int32_t maxHeight;  ///< Largest picture height of the core, in pixels.
    int32_t reserved2[10];
} TVHW_CRM_RESOURCE;

/// What the manager tells of a reclaim; its content is the manager's own.
// NOLINTNEXTLINE(bugprone-reserved-identifier): part of mangled names.
typedef struct _TVHW_CRM_RECLAIM_PARAM TVHW_CRM_RECLAIM_PARAM;

/// Asks a client to give up what it holds; called on a thread of the manager that holds none of its
/// locks. Returns 1 when the manager may take the resources, 0 when the client keeps them. May
/// block for more than 3 seconds, and call the manager back, even to close the client.
typedef int (*TVHW_CRM_RECLAIM_CALLBACK)(TVHW_CRM_RECLAIM_PARAM const* param, void* cookie);

// Unless stated otherwise an operation returns 0 on success and an error code otherwise, and may
// be called from any thread, the callback's too. Strings and records are never null.

/// Opens a client and, on success, writes its handle, which is not null. From now on the manager
/// may call `reclaim` with `cookie` at any time; a call already under way may still arrive while,
/// or just after, the client is freed.
int TVHW_CRM_ClientInit(TVHW_CRM_HANDLE* client, char const* name,
                        TVHW_CRM_RECLAIM_CALLBACK reclaim, int reserved, void* cookie);

/// Closes a client, whose handle is not used again, and gives back all that it holds. Must not wait
/// for a callback that it is called from.
int TVHW_CRM_ClientFree(TVHW_CRM_HANDLE* client);

/// Returns the manager's codec type for a MIME type, 0 when there is none.
int TVHW_CRM_CodecTypeFromMIME(char const* mime);

/// Grants the requested resource to a client. What else it holds, it keeps: a core beside a port.
/// How the manager finds one is its own affair; the host platform's takes it from another client if
/// need be.
int TVHW_CRM_ClientAcquireResource(TVHW_CRM_HANDLE client, TVHW_CRM_ACQUIRE_PARAM const* request);

/// The same request in its try form. What differs is the manager's affair; the host platform's
/// grants only what is free.
int TVHW_CRM_ClientTryAcquireResource(TVHW_CRM_HANDLE client,
                                      TVHW_CRM_ACQUIRE_PARAM const* request);

/// Describes what a client holds; fails when it holds nothing.
int TVHW_CRM_ClientGetResource(TVHW_CRM_HANDLE client, TVHW_CRM_RESOURCE* resource);

/// Clears the display ports that `resource` names.
int TVHW_CRM_ClientClearResource(TVHW_CRM_HANDLE client, TVHW_CRM_RESOURCE const* resource);

/// Gives back all that a client holds. Succeeds also when that is nothing.
int TVHW_CRM_ClientReleaseResource(TVHW_CRM_HANDLE client);

/// Writes the id by which the whole system knows a client.
int TVHW_CRM_ClientGetUniqueId(TVHW_CRM_HANDLE client, int* id);

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(TVHW_CRM_ACQUIRE_PARAM) == 64);
static_assert(offsetof(TVHW_CRM_ACQUIRE_PARAM, codecType) == 0);
static_assert(offsetof(TVHW_CRM_ACQUIRE_PARAM, width) == 4);
static_assert(offsetof(TVHW_CRM_ACQUIRE_PARAM, height) == 8);
static_assert(offsetof(TVHW_CRM_ACQUIRE_PARAM, frameRate) == 12);
static_assert(offsetof(TVHW_CRM_ACQUIRE_PARAM, isEncoder) == 16);
static_assert(offsetof(TVHW_CRM_ACQUIRE_PARAM, extraFlag) == 20);
static_assert(sizeof(TVHW_CRM_RESOURCE) == 64);
static_assert(offsetof(TVHW_CRM_RESOURCE, core) == 0);
static_assert(offsetof(TVHW_CRM_RESOURCE, videoPort) == 4);
static_assert(offsetof(TVHW_CRM_RESOURCE, maxWidth) == 16);
static_assert(offsetof(TVHW_CRM_RESOURCE, maxHeight) == 20);
#endif
