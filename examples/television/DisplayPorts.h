#pragma once

#include <map>
#include <mutex>

#include "Libav.h"

namespace kvo::demo {

/// What the display ports of the platform carry: the pictures of the decoders in tunnel mode. Every
/// operation may be called from any thread.
class DisplayPorts {
public:
    /// Shows `picture` at a port, in place of the one before.
    void show(int port, FramePtr picture);

    /// Shows nothing at a port.
    void clear(int port);

    /// Returns the picture at a port, or null.
    FramePtr picture(int port);

private:
    std::mutex mMutex;
    std::map<int, FramePtr> mPictures;  ///< By port; guarded by mMutex.
};

}  // namespace kvo::demo
