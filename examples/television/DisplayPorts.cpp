#include "DisplayPorts.h"

#include <utility>

namespace kvo::demo {

void DisplayPorts::show(int port, FramePtr picture) {
    std::lock_guard<std::mutex> const lock(mMutex);
    mPictures[port] = std::move(picture);
}

void DisplayPorts::clear(int port) {
    std::lock_guard<std::mutex> const lock(mMutex);
    mPictures.erase(port);
}

FramePtr DisplayPorts::picture(int port) {
    std::lock_guard<std::mutex> const lock(mMutex);
    auto const picture = mPictures.find(port);
    return FramePtr(picture == mPictures.end() ? nullptr : av_frame_clone(picture->second.get()));
}

}  // namespace kvo::demo
