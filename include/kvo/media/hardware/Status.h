#pragma once

#include <cstdint>

namespace kvo::media::hardware {

/// The result code of an operation: 0 for success, negative for an error.
class Status {
public:
    constexpr Status() = default;
    constexpr explicit Status(std::int32_t code) : mCode(code) {}

    [[nodiscard]] constexpr std::int32_t code() const { return mCode; }
    [[nodiscard]] constexpr bool isError() const { return mCode < 0; }

private:
    std::int32_t mCode = 0;
};

/// The codes that this library produces itself; all others come from a client or base class.
namespace status {

inline constexpr Status kSuccess{0};

/// A call on the resource manager or the video output failed, or nothing was granted.
inline constexpr Status kResourceFailed{-1};

/// The image sink was given a configuration that it does not support.
inline constexpr Status kUnsupported{-2};

/// The codec is being reclaimed, or has been: the codec was not called.
inline constexpr Status kReclaimed{-19};

}  // namespace status

}  // namespace kvo::media::hardware
