// The resource manager: one process, three cores, two display ports. Who needs a core when none is
// free gets that of another client, if its callback says so.

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "tvhw_crm.h"

enum { kPorts = 2, kClients = 256, kReclaimSeconds = 10 };

struct TVHW_CRM_CLIENT {
    int id;  // 0: not in use. Never given out twice.
    int port;
    int isAsked;
    TVHW_CRM_RECLAIM_CALLBACK reclaim;
    void* cookie;
};

struct Core {
    int type;
    int isEncoder;
    int width;
    int height;
    int holder;    // A client's id, 0 for none.
    int wantedBy;  // Who gets it from its holder.
    long since;
};

struct Reclaim {
    int holder;
    int isOver;
    int hasWaiter;
    struct Core* core;
    TVHW_CRM_RECLAIM_CALLBACK reclaim;
    void* cookie;
};

static pthread_mutex_t gMutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t gChanged = PTHREAD_COND_INITIALIZER;
static struct TVHW_CRM_CLIENT gClients[kClients];
static struct Core gCores[] = {
    {1, 0, 3840, 2160, 0, 0, 0}, {2, 0, 1920, 1088, 0, 0, 0}, {3, 1, 1920, 1088, 0, 0, 0}};
static int gPorts[kPorts];  // Holders.
static int gLastId;
static long gGrants;

static char const* const kMimeTypes[] = {"video/avc", "video/hevc", "video/x-vnd.on2.vp9",
                                         "video/mpeg2", "video/x-vnd.on2.vp8"};

#define COUNT(array) (sizeof(array) / sizeof((array)[0]))

// A handle is an id, not an address: an old one leads nowhere.
static struct TVHW_CRM_CLIENT* find(TVHW_CRM_HANDLE handle) {
    for (size_t index = 0; index < kClients; ++index) {
        if (handle != NULL && gClients[index].id == (int)(intptr_t)handle) {
            return &gClients[index];
        }
    }
    return NULL;
}

static struct Core* coreOf(int id) {
    for (size_t index = 0; index < COUNT(gCores); ++index) {
        if (gCores[index].holder == id) {
            return &gCores[index];
        }
    }
    return NULL;
}

static void grant(struct Core* core, int id) {
    int const isGone = id > 0 && find((TVHW_CRM_HANDLE)(intptr_t)id) == NULL;  // While it waited.
    core->holder = isGone ? 0 : id;
    core->wantedBy = 0;
    core->since = ++gGrants;
}

static void giveBack(struct TVHW_CRM_CLIENT* client) {
    struct Core* core = coreOf(client->id);
    if (core != NULL) {
        grant(core, core->wantedBy);
    }
    if (client->port != 0) {
        gPorts[client->port - 1] = 0;
        client->port = 0;
    }
    pthread_cond_broadcast(&gChanged);
}

// Asks a holder, with no lock held: the callback may call anything here.
static void* runReclaim(void* argument) {
    struct Reclaim* reclaim = argument;
    int const answer = reclaim->reclaim(NULL, reclaim->cookie);
    pthread_mutex_lock(&gMutex);
    struct TVHW_CRM_CLIENT* holder = find((TVHW_CRM_HANDLE)(intptr_t)reclaim->holder);
    if (holder != NULL) {
        holder->isAsked = 0;
        if (answer == 1) {
            giveBack(holder);
        } else if (reclaim->core->holder == reclaim->holder) {
            reclaim->core->wantedBy = 0;
        }
    }
    reclaim->isOver = 1;
    int const hasWaiter = reclaim->hasWaiter;
    pthread_cond_broadcast(&gChanged);
    pthread_mutex_unlock(&gMutex);
    if (!hasWaiter) {
        free(reclaim);
    }
    return NULL;
}

// Waits, at most for a while, until a core's holder has been asked for it.
static int reclaimFor(int id, struct Core* core) {
    struct Reclaim* reclaim = calloc(1, sizeof(*reclaim));
    struct TVHW_CRM_CLIENT* holder = find((TVHW_CRM_HANDLE)(intptr_t)core->holder);
    pthread_t thread;
    *reclaim = (struct Reclaim){holder->id, 0, 1, core, holder->reclaim, holder->cookie};
    if (pthread_create(&thread, NULL, runReclaim, reclaim) != 0) {
        free(reclaim);
        return -EAGAIN;
    }
    pthread_detach(thread);
    holder->isAsked = 1;
    core->wantedBy = id;
    struct timespec end;
    clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += kReclaimSeconds;
    int waited = 0;
    while (!reclaim->isOver && waited == 0) {
        waited = pthread_cond_timedwait(&gChanged, &gMutex, &end);
    }
    if (!reclaim->isOver) {
        reclaim->hasWaiter = 0;
        return -ETIMEDOUT;
    }
    free(reclaim);
    return core->holder == id ? 0 : -EBUSY;
}

static int fits(struct Core const* core, TVHW_CRM_ACQUIRE_PARAM const* request) {
    return core->isEncoder == request->isEncoder && request->width <= core->width &&
           request->height <= core->height;
}

static int acquireCore(int id, TVHW_CRM_ACQUIRE_PARAM const* request, int isTry) {
    int asked[COUNT(gCores)] = {0};
    int result = -EOPNOTSUPP;
    for (;;) {
        struct Core* oldest = NULL;
        for (size_t index = 0; index < COUNT(gCores); ++index) {
            struct Core* core = &gCores[index];
            if (!fits(core, request)) {
                continue;
            }
            if (core->holder == 0) {
                grant(core, id);
                return 0;
            }
            result = -EBUSY;
            struct TVHW_CRM_CLIENT* holder = find((TVHW_CRM_HANDLE)(intptr_t)core->holder);
            if (holder != NULL && !holder->isAsked && !asked[index] && core->holder != id &&
                (oldest == NULL || core->since < oldest->since)) {
                oldest = core;
            }
        }
        if (oldest == NULL || isTry) {
            return result;
        }
        asked[oldest - gCores] = 1;
        if (reclaimFor(id, oldest) == 0) {
            return 0;
        }
        if (oldest->wantedBy == id) {  // Its holder has not answered, and may give up yet.
            oldest->wantedBy = 0;
            return result;
        }
    }
}

static int acquirePort(struct TVHW_CRM_CLIENT* client) {
    for (int port = 1; port <= kPorts && client->port == 0; ++port) {
        if (gPorts[port - 1] == 0) {
            gPorts[port - 1] = client->id;
            client->port = port;
        }
    }
    return client->port != 0 ? 0 : -EBUSY;
}

static int acquire(TVHW_CRM_HANDLE handle, TVHW_CRM_ACQUIRE_PARAM const* request, int isTry) {
    pthread_mutex_lock(&gMutex);
    struct TVHW_CRM_CLIENT* client = find(handle);
    int result = -EINVAL;
    if (client != NULL && request->codecType == TVHW_CRM_CODEC_TYPE_DISPLAY) {
        result = acquirePort(client);
    } else if (client != NULL && request->codecType > 0) {
        result = acquireCore(client->id, request, isTry);
    }
    pthread_mutex_unlock(&gMutex);
    return result;
}

int TVHW_CRM_ClientInit(TVHW_CRM_HANDLE* client, char const* name,
                        TVHW_CRM_RECLAIM_CALLBACK reclaim, int reserved, void* cookie) {
    (void)name;  // All of the library's have the same.
    (void)reserved;
    int result = -ENOMEM;
    pthread_mutex_lock(&gMutex);
    for (size_t index = 0; index < kClients && result != 0; ++index) {
        if (gClients[index].id == 0) {
            gClients[index] = (struct TVHW_CRM_CLIENT){++gLastId, 0, 0, reclaim, cookie};
            *client = (TVHW_CRM_HANDLE)(intptr_t)gLastId;
            result = 0;
        }
    }
    pthread_mutex_unlock(&gMutex);
    return result;
}

int TVHW_CRM_ClientFree(TVHW_CRM_HANDLE* handle) {
    pthread_mutex_lock(&gMutex);
    struct TVHW_CRM_CLIENT* client = find(*handle);
    int const result = client == NULL ? -EINVAL : 0;
    if (client != NULL) {
        giveBack(client);
        client->id = 0;
    }
    pthread_mutex_unlock(&gMutex);
    return result;
}

int TVHW_CRM_CodecTypeFromMIME(char const* mime) {
    for (size_t index = 0; index < COUNT(kMimeTypes); ++index) {
        if (strcmp(mime, kMimeTypes[index]) == 0) {
            return (int)index + 0x101;
        }
    }
    return 0;
}

int TVHW_CRM_ClientAcquireResource(TVHW_CRM_HANDLE client, TVHW_CRM_ACQUIRE_PARAM const* request) {
    return acquire(client, request, 0);
}

int TVHW_CRM_ClientTryAcquireResource(TVHW_CRM_HANDLE client,
                                      TVHW_CRM_ACQUIRE_PARAM const* request) {
    return acquire(client, request, 1);
}

int TVHW_CRM_ClientGetResource(TVHW_CRM_HANDLE handle, TVHW_CRM_RESOURCE* resource) {
    pthread_mutex_lock(&gMutex);
    struct TVHW_CRM_CLIENT* client = find(handle);
    struct Core* core = client == NULL ? NULL : coreOf(client->id);
    int result = client == NULL ? -EINVAL : -ENODATA;
    if (core != NULL || (client != NULL && client->port != 0)) {
        resource->core = core == NULL ? 0 : core->type;
        resource->videoPort = client->port;
        resource->maxWidth = core == NULL ? 0 : core->width;
        resource->maxHeight = core == NULL ? 0 : core->height;
        result = 0;
    }
    pthread_mutex_unlock(&gMutex);
    return result;
}

int TVHW_CRM_ClientClearResource(TVHW_CRM_HANDLE client, TVHW_CRM_RESOURCE const* resource) {
    pthread_mutex_lock(&gMutex);
    int const isOpen = find(client) != NULL;
    pthread_mutex_unlock(&gMutex);
    // Here the planes of the ports would go black; their holders keep them.
    return isOpen && resource->videoPort >= TVHW_CRM_VIDEO_PORT_0 &&
                   resource->videoPort <= TVHW_CRM_VIDEO_PORT_ALL
               ? 0
               : -EINVAL;
}

int TVHW_CRM_ClientReleaseResource(TVHW_CRM_HANDLE handle) {
    pthread_mutex_lock(&gMutex);
    struct TVHW_CRM_CLIENT* client = find(handle);
    if (client != NULL) {
        giveBack(client);
    }
    pthread_mutex_unlock(&gMutex);
    return client == NULL ? -EINVAL : 0;
}

int TVHW_CRM_ClientGetUniqueId(TVHW_CRM_HANDLE client, int* id) {
    pthread_mutex_lock(&gMutex);
    int const isOpen = find(client) != NULL;
    pthread_mutex_unlock(&gMutex);
    *id = (int)(intptr_t)client;
    return isOpen ? 0 : -EINVAL;
}
