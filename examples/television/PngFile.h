#pragma once

#include <string>

#include "Libav.h"

namespace kvo::demo {

/// Writes a picture of any format as a PNG file. Throws DemoFailure, and leaves no file, where that
/// fails.
void writePng(std::string const& path, AVFrame const& picture);

}  // namespace kvo::demo
