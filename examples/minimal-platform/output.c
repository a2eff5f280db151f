// The video output: open as often as image sinks have opened it.

#include <errno.h>
#include <pthread.h>

#include "tvhw_vo.h"

static pthread_mutex_t gMutex = PTHREAD_MUTEX_INITIALIZER;
static int gOpens;
static int gWidth;
static int gHeight;

static int unlock(int result) {
    pthread_mutex_unlock(&gMutex);
    return result;
}

int TVHW_VO_Open(int32_t output, int32_t mode) {
    pthread_mutex_lock(&gMutex);
    if (output != 0 || mode != TVHW_VO_MODE_STILL) {
        return unlock(-EINVAL);
    }
    ++gOpens;
    return unlock(0);
}

int TVHW_VO_Close(int32_t output) {
    pthread_mutex_lock(&gMutex);
    if (output != 0 || gOpens == 0) {
        return unlock(-EBADF);
    }
    --gOpens;
    return unlock(0);
}

int TVHW_VO_Config(int32_t output, TVHW_VO_CONFIG_PARAM const* config) {
    pthread_mutex_lock(&gMutex);
    if (output != 0 || gOpens == 0) {
        return unlock(-EBADF);
    }
    if (config->mode != TVHW_VO_MODE_STILL || config->width < 1 || config->height < 1 ||
        config->pixelFormat != TVHW_VO_PIXEL_FORMAT_STILL) {
        return unlock(-EINVAL);
    }
    gWidth = config->width;
    gHeight = config->height;
    return unlock(0);
}

int TVHW_VO_DisplayPicture(int32_t output, TVHW_VO_PICTURE_PARAM const* picture) {
    pthread_mutex_lock(&gMutex);
    if (output != 0 || gOpens == 0) {
        return unlock(-EBADF);
    }
    // Here the picture would go from the memory that picture->buffer names to the plane.
    int const fits =
        picture->x + picture->width <= gWidth && picture->y + picture->height <= gHeight;
    return unlock(fits ? 0 : -EINVAL);
}
