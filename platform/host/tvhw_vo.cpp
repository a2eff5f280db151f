#include "tvhw_vo.h"

#include <cerrno>
#include <map>
#include <mutex>
#include <utility>

#include "host/Forever.h"
#include "host/HostPlatform.h"
#include "host/Misuse.h"
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
struct Output {
    std::mutex mutex;
    VideoOutput state;
    std::map<std::uint32_t, Memory> memory;
    std::uint32_t lastHandle = 0;
};

/// Lets `use`, which returns a result code, change output 0 while it is open.
template <typename Use>
int withOutput(std::int32_t number, Use const& use) {
    auto& output = forever<Output>();
    std::lock_guard<std::mutex> const lock(output.mutex);
    if (number != 0) {
        return -EINVAL;
    }
    return output.state.opens == 0 ? -EBADF : use(output);
}

bool isWellFormed(TVHW_VO_CONFIG_PARAM const& config) {
    return config.mode == TVHW_VO_MODE_STILL && isZero(config.reserved) && config.width >= 1 &&
           config.height >= 1 && config.pixelFormat == TVHW_VO_PIXEL_FORMAT_STILL;
}

int show(TVHW_VO_PICTURE_PARAM const& picture, Output& output) {
    VideoOutput& state = output.state;
    if (state.width == 0) {
        return -ENODATA;
    }
    if (!isZero(picture.reserved) || picture.x < 0 || picture.y < 0 || picture.width < 1 ||
        picture.height < 1 || picture.width > state.width - picture.x ||
        picture.height > state.height - picture.y ||
        picture.stride / kBytesPerPixel < picture.width ||
        picture.pixelFormat != TVHW_VO_PIXEL_FORMAT_STILL) {
        return -EINVAL;
    }
    auto const memory = output.memory.find(picture.buffer);
    auto const length = std::int64_t{picture.bufferLength};
    if (memory == output.memory.end() ||
        length > static_cast<std::int64_t>(memory->second->size()) ||
        length < std::int64_t{picture.stride} * picture.height) {
        return -EFAULT;
    }
    state.picture = {picture.buffer, memory->second, picture.x,     picture.y,
                     picture.width,  picture.height, picture.stride};
    return 0;
}

void tellOfPicture(int result) {
    if (result == -EBADF || result == -ENODATA) {
        tellMisuse(
            "TVHW_VO_DisplayPicture() on a video output that is not open and configured",
            "configure the image sink before its first picture, and close it after the last");
    } else if (result == -EFAULT) {
        tellMisuse(
            "TVHW_VO_DisplayPicture() from memory that nobody has registered, or too little",
            "give the picture a handle of registerMemory() and bufferLength its lines' size");
    }
}

OnReset const gOnReset([] {
    std::lock_guard<std::mutex> const lock(forever<Output>().mutex);
    forever<Output>().memory.clear();
});

}  // namespace

std::uint32_t registerMemory(Memory memory) {
    auto& output = forever<Output>();
    std::lock_guard<std::mutex> const lock(output.mutex);
    output.memory[++output.lastHandle] = std::move(memory);
    return output.lastHandle;
}

void unregisterMemory(std::uint32_t handle) {
    std::lock_guard<std::mutex> const lock(forever<Output>().mutex);
    forever<Output>().memory.erase(handle);
}

VideoOutput videoOutput() {
    std::lock_guard<std::mutex> const lock(forever<Output>().mutex);
    return forever<Output>().state;
}

extern "C" {

KVO_MEDIA_EXPORT int TVHW_VO_Open(std::int32_t output, std::int32_t mode) {
    return PlatformCall("TVHW_VO_Open", output, mode).perform([&] {
        if (output != 0 || mode != TVHW_VO_MODE_STILL) {
            return -EINVAL;
        }
        std::lock_guard<std::mutex> const lock(forever<Output>().mutex);
        ++forever<Output>().state.opens;
        return 0;
    });
}

KVO_MEDIA_EXPORT int TVHW_VO_Close(std::int32_t output) {
    return PlatformCall("TVHW_VO_Close", output).perform([&] {
        return withOutput(output, [](Output& open) {
            if (--open.state.opens == 0) {
                open.state = {};
            }
            return 0;
        });
    });
}

KVO_MEDIA_EXPORT int TVHW_VO_Config(std::int32_t output, TVHW_VO_CONFIG_PARAM const* config) {
    if (config == nullptr) {
        return -EINVAL;
    }
    return PlatformCall("TVHW_VO_Config", output, config->mode, config->width, config->height,
                        config->pixelFormat)
        .perform([&] {
            if (!isWellFormed(*config)) {
                return -EINVAL;
            }
            return withOutput(output, [&](Output& open) {
                open.state.width = config->width;
                open.state.height = config->height;
                open.state.picture.reset();
                return 0;
            });
        });
}

KVO_MEDIA_EXPORT int TVHW_VO_DisplayPicture(std::int32_t output,
                                            TVHW_VO_PICTURE_PARAM const* picture) {
    if (picture == nullptr) {
        return -EINVAL;
    }
    return PlatformCall("TVHW_VO_DisplayPicture", output, picture->buffer, picture->bufferLength,
                        picture->stride, picture->x, picture->y, picture->width, picture->height,
                        picture->pixelFormat)
        .perform([&] {
            int const result =
                withOutput(output, [&](Output& open) { return show(*picture, open); });
            tellOfPicture(result);
            return result;
        });
}

}  // extern "C"

}  // namespace kvo::host
