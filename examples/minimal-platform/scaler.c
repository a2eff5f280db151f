// The video scaler: the state of two channels.

#include <errno.h>
#include <pthread.h>

#include "tvhw_vsc.h"

enum { kChannels = 2 };

struct Channel {
    int isOpen;
    int isConnected;
    TVHW_VSC_SOURCE source;
    int isAdaptive;
    int isBlank;
    TVHW_VSC_WINDOW input;
    TVHW_VSC_WINDOW output;
};

static pthread_mutex_t gMutex = PTHREAD_MUTEX_INITIALIZER;
static int gIsInitialized;
static struct Channel gChannels[kChannels];

// The channel if it is open, locked; else null.
static struct Channel* lock(uint32_t channel) {
    pthread_mutex_lock(&gMutex);
    if (gIsInitialized && channel < kChannels && gChannels[channel].isOpen) {
        return &gChannels[channel];
    }
    pthread_mutex_unlock(&gMutex);
    return NULL;
}

static int unlock(int result) {
    pthread_mutex_unlock(&gMutex);
    return result;
}

int TVHW_VSC_Initialize(void) {
    pthread_mutex_lock(&gMutex);
    gIsInitialized = 1;
    return unlock(0);
}

int TVHW_VSC_Open(uint32_t channel) {
    pthread_mutex_lock(&gMutex);
    if (!gIsInitialized || channel >= kChannels || gChannels[channel].isOpen) {
        return unlock(-EBUSY);
    }
    gChannels[channel] = (struct Channel){.isOpen = 1, .isBlank = 1};
    return unlock(0);
}

int TVHW_VSC_Close(uint32_t channel) {
    struct Channel* open = lock(channel);
    if (open == NULL) {
        return -EBADF;
    }
    open->isOpen = 0;
    open->isConnected = 0;
    return unlock(0);
}

int TVHW_VSC_Connect(uint32_t channel, TVHW_VSC_SOURCE source, int32_t reserved) {
    (void)reserved;
    struct Channel* open = lock(channel);
    if (open == NULL) {
        return -EBADF;
    }
    if (source.type != 0 && source.type != 2 && source.type != 3) {
        return unlock(-EINVAL);
    }
    open->source = source;
    open->isConnected = 1;
    return unlock(0);
}

int TVHW_VSC_Disconnect(uint32_t channel, TVHW_VSC_SOURCE source, int32_t reserved) {
    (void)reserved;
    struct Channel* open = lock(channel);
    if (open == NULL) {
        return -EBADF;
    }
    if (!open->isConnected || open->source.type != source.type ||
        open->source.port != source.port) {
        return unlock(-ENOTCONN);
    }
    open->isConnected = 0;
    return unlock(0);
}

int TVHW_VSC_SetAdaptiveStreamEx(uint32_t channel, int32_t adaptive) {
    struct Channel* open = lock(channel);
    if (open == NULL) {
        return -EBADF;
    }
    open->isAdaptive = adaptive;
    return unlock(0);
}

int TVHW_VSC_SetWinBlank(uint32_t channel, int32_t blank, int32_t reserved) {
    (void)reserved;
    struct Channel* open = lock(channel);
    if (open == NULL) {
        return -EBADF;
    }
    open->isBlank = blank;
    return unlock(0);
}

int TVHW_VSC_SetInputRegion(uint32_t channel, TVHW_VSC_WINDOW window) {
    struct Channel* open = lock(channel);
    if (open == NULL) {
        return -EBADF;
    }
    open->input = window;
    return unlock(0);
}

int TVHW_VSC_SetInputRegion_ForAdaptive(uint32_t channel, TVHW_VSC_WINDOW window) {
    struct Channel* open = lock(channel);
    if (open == NULL) {
        return -EBADF;
    }
    open->input = window;
    return unlock(0);
}

int TVHW_VSC_SetOutputRegion(uint32_t channel, TVHW_VSC_WINDOW window) {
    struct Channel* open = lock(channel);
    if (open == NULL) {
        return -EBADF;
    }
    open->output = window;
    return unlock(0);
}
