#pragma once

#include <mutex>

#include "ThreadAnnotations.h"
#include "kvo/media/hardware/Export.h"
#include "kvo/media/hardware/IImageSink.h"

namespace kvo::media::hardware {

/// Shows still pictures on this platform's video output 0, which each sink opens for itself.
///
/// No operation checks what came before: each asks the video output, whose answer is the result.
/// Results are 0, or -1 when the video output refuses. An object belongs to one thread at a time;
/// different objects may be used from different threads.
class KVO_MEDIA_EXPORT ImageSinkTvhwImpl : public IImageSink {
public:
    /// Opens the video output. When that fails, checkOpen() may try again.
    ImageSinkTvhwImpl();

    /// Closes the video output, if this object has opened and not closed it.
    ~ImageSinkTvhwImpl() override;

    /// Sets the size of the pictures to come. Returns also -2, without asking the video output,
    /// when the configuration has no size or a colour format that is not supported.
    Return<void> configure(Configuration const& config) override;

    /// Shows `image` at the top left corner. What becomes of its memory meanwhile is between the
    /// caller and the platform.
    Return<void> displayPicture(Image const& image) override;

    /// Closes the video output, also when this object did not open it. On failure it stays open.
    Return<void> close() override;

    /// Opens the video output, unless this object has done so. Returns whether it is open.
    bool checkOpen() TVHW_EXCLUDES(sMutex);

private:
    /// Asks the platform to open the video output, for one sink at a time. Returns its code.
    KVO_MEDIA_HIDDEN static int openOutput() TVHW_REQUIRES(sMutex);

    static std::mutex sMutex;  ///< Held while the video output is being opened.

    bool mOpened = false;
};

}  // namespace kvo::media::hardware
