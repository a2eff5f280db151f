#pragma once

#include <map>
#include <mutex>
#include <utility>

#include "Libav.h"

namespace kvo::media::hardware::example {

/// What the display ports of the platform carry: the pictures of the decoders in tunnel mode. Every
/// operation may be called from any thread.
class DisplayPorts {
public:
    /// Shows `picture` at a port, in place of the one before; null shows nothing.
    void show(int port, FramePtr picture) {
        std::lock_guard<std::mutex> const lock(mMutex);
        mPictures[port] = std::move(picture);
    }

    /// Returns the picture at a port, or null.
    FramePtr picture(int port) {
        std::lock_guard<std::mutex> const lock(mMutex);
        AVFrame const* const picture = mPictures[port].get();
        return FramePtr(picture == nullptr ? nullptr : av_frame_clone(picture));
    }

private:
    std::mutex mMutex;
    std::map<int, FramePtr> mPictures;  ///< By port; guarded by mMutex.
};

}  // namespace kvo::media::hardware::example
