#pragma once

#include <array>
#include <cstdint>

namespace kvo::media::hardware {

/// The mastering display and light levels of an HDR stream; all 0 when unknown.
struct HdrInfo {
    std::array<std::int32_t, 3> primariesX{};    ///< Red, green, blue, in steps of 0.00002.
    std::array<std::int32_t, 3> primariesY{};    ///< As primariesX.
    std::int32_t whitePointX = 0;                ///< In steps of 0.00002.
    std::int32_t whitePointY = 0;                ///< In steps of 0.00002.
    std::int32_t maxMasteringLuminance = 0;      ///< In steps of 0.0001 candela per square metre.
    std::int32_t minMasteringLuminance = 0;      ///< In steps of 0.0001 candela per square metre.
    std::int32_t maxContentLightLevel = 0;       ///< In candela per square metre.
    std::int32_t maxFrameAverageLightLevel = 0;  ///< In candela per square metre.
};

}  // namespace kvo::media::hardware
