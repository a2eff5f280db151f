#pragma once

#include "kvo/media/hardware/Configuration.h"
#include "kvo/media/hardware/Image.h"
#include "kvo/media/hardware/Return.h"

namespace kvo::media::hardware {

/// Shows still pictures. The order of the operations is the order of the virtual table, which other
/// binaries rely on. An object belongs to one thread at a time.
class IImageSink {
public:
    IImageSink() = default;
    IImageSink(IImageSink const&) = delete;
    IImageSink& operator=(IImageSink const&) = delete;
    virtual ~IImageSink() = default;

    /// Sets the size in pixels and the colour format of the pictures to come.
    virtual Return<void> configure(Configuration const& config) = 0;

    /// Shows `image` in place of the picture before it.
    virtual Return<void> displayPicture(Image const& image) = 0;

    /// Stops showing pictures.
    virtual Return<void> close() = 0;
};

}  // namespace kvo::media::hardware
