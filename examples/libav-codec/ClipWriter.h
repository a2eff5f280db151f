#pragma once

#include <string>

#include "Clip.h"
#include "Libav.h"

namespace kvo::media::hardware::example {

/// Writes coded pictures to a clip, in the container that the end of the file's name asks for. For
/// one thread at a time.
class ClipWriter {
public:
    /// Nothing is written before the first picture. `example` is a picture of the clip's size,
    /// shape and colours.
    ClipWriter(std::string path, AVCodecID codec, int frameRate, AVFrame const& example);
    ClipWriter(ClipWriter const&) = delete;
    ClipWriter& operator=(ClipWriter const&) = delete;
    /// Ends a clip that finish() did not, so that it can be read after an error too.
    ~ClipWriter();

    /// Appends a coded picture. The first one carries the codec's parameter sets. Throws
    /// Failure on failure.
    void write(unsigned long long timestampUs, unsigned char const* data, unsigned int length,
               bool isKey);

    /// Ends the clip; then it can be read, if it has a picture. Throws Failure on failure.
    void finish();

private:
    struct Close {
        void operator()(AVFormatContext* format) const;
    };

    void begin(unsigned char const* data, unsigned int length);

    std::string const mPath;
    int const mFrameRate;
    CodecParametersPtr mDescription;
    std::unique_ptr<AVFormatContext, Close> mFormat;  ///< Null unless the clip is begun.
};

}  // namespace kvo::media::hardware::example
