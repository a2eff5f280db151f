#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// One picture that reached the screen. The default is all 0.
struct RenderEvent {
    std::uint64_t timestampUs = 0;   ///< The picture's own time.
    std::uint64_t renderTimeNs = 0;  ///< When it was shown, on the steady clock.
};

}  // namespace kvo::media::hardware
