#include "tvhw_vo.h"

#include <cerrno>
#include <map>
#include <mutex>
#include <utility>

#include "host/HostPlatform.h"
#include "host/PlatformCall.h"

namespace kvo::host {

namespace {

constexpr int kBytesPerPixel = 4;

template <std::size_t count>
bool isZero(std::int32_t const (&reserved)[count]) {
    for (std::int32_t const value : reserved) {
        if (value != 0) {
            return false;
        }
    }
    return true;
}

/// Video output 0, the only one, and the memory that its pictures may lie in.
class Output {
public:
    int open(int mode) {
        if (mode != TVHW_VO_MODE_STILL) {
            return -EINVAL;
        }
        std::lock_guard<std::mutex> const lock(mMutex);
        ++mState.opens;
        return 0;
    }

    int close() {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (mState.opens == 0) {
            return -EBADF;
        }
        if (--mState.opens == 0) {
            mState = {};
        }
        return 0;
    }

    int configure(TVHW_VO_CONFIG_PARAM const& config) {
        if (config.mode != TVHW_VO_MODE_STILL || !isZero(config.reserved) || config.width < 1 ||
            config.height < 1 || config.pixelFormat != TVHW_VO_PIXEL_FORMAT_STILL) {
            return -EINVAL;
        }
        std::lock_guard<std::mutex> const lock(mMutex);
        if (mState.opens == 0) {
            return -EBADF;
        }
        mState.width = config.width;
        mState.height = config.height;
        mState.picture.reset();
        return 0;
    }

    int show(TVHW_VO_PICTURE_PARAM const& picture) {
        std::lock_guard<std::mutex> const lock(mMutex);
        if (mState.opens == 0) {
            return -EBADF;
        }
        if (mState.width == 0) {
            return -ENODATA;
        }
        if (!isZero(picture.reserved) || picture.x < 0 || picture.y < 0 || picture.width < 1 ||
            picture.height < 1 || picture.width > mState.width - picture.x ||
            picture.height > mState.height - picture.y ||
            picture.stride / kBytesPerPixel < picture.width ||
            picture.pixelFormat != TVHW_VO_PIXEL_FORMAT_STILL) {
            return -EINVAL;
        }
        auto const memory = mMemory.find(picture.buffer);
        auto const length = std::int64_t{picture.bufferLength};
        if (memory == mMemory.end() || length > static_cast<std::int64_t>(memory->second->size()) ||
            length < std::int64_t{picture.stride} * picture.height) {
            return -EFAULT;
        }
        mState.picture = {picture.buffer, memory->second, picture.x,     picture.y,
                          picture.width,  picture.height, picture.stride};
        return 0;
    }

    std::uint32_t registerMemory(Memory memory) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mMemory[++mLastHandle] = std::move(memory);
        return mLastHandle;
    }

    void unregisterMemory(std::uint32_t handle) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mMemory.erase(handle);
    }

    void unregisterAllMemory() {
        std::lock_guard<std::mutex> const lock(mMutex);
        mMemory.clear();
    }

    VideoOutput state() {
        std::lock_guard<std::mutex> const lock(mMutex);
        return mState;
    }

private:
    std::mutex mMutex;
    VideoOutput mState;
    std::map<std::uint32_t, Memory> mMemory;
    std::uint32_t mLastHandle = 0;
};

Output& output0() {
    static Output& theOutput =
        *new Output;  // Never destroyed, as callers may be in static storage.
    return theOutput;
}

[[maybe_unused]] bool const gResets = [] {
    onReset([] { output0().unregisterAllMemory(); });
    return true;
}();

}  // namespace

std::uint32_t registerMemory(Memory memory) { return output0().registerMemory(std::move(memory)); }

void unregisterMemory(std::uint32_t handle) { output0().unregisterMemory(handle); }

VideoOutput videoOutput() { return output0().state(); }

}  // namespace kvo::host

using kvo::host::output0;
using kvo::host::PlatformCall;

extern "C" {

KVO_MEDIA_EXPORT int TVHW_VO_Open(std::int32_t output, std::int32_t mode) {
    return PlatformCall("TVHW_VO_Open", output, mode).perform([&] {
        return output == 0 ? output0().open(mode) : -EINVAL;
    });
}

KVO_MEDIA_EXPORT int TVHW_VO_Close(std::int32_t output) {
    return PlatformCall("TVHW_VO_Close", output).perform([&] {
        return output == 0 ? output0().close() : -EINVAL;
    });
}

KVO_MEDIA_EXPORT int TVHW_VO_Config(std::int32_t output, TVHW_VO_CONFIG_PARAM const* config) {
    if (config == nullptr) {
        return -EINVAL;
    }
    return PlatformCall("TVHW_VO_Config", output, config->mode, config->width, config->height,
                        config->pixelFormat)
        .perform([&] { return output == 0 ? output0().configure(*config) : -EINVAL; });
}

KVO_MEDIA_EXPORT int TVHW_VO_DisplayPicture(std::int32_t output,
                                            TVHW_VO_PICTURE_PARAM const* picture) {
    if (picture == nullptr) {
        return -EINVAL;
    }
    return PlatformCall("TVHW_VO_DisplayPicture", output, picture->buffer, picture->bufferLength,
                        picture->stride, picture->x, picture->y, picture->width, picture->height,
                        picture->pixelFormat)
        .perform([&] { return output == 0 ? output0().show(*picture) : -EINVAL; });
}

}  // extern "C"
