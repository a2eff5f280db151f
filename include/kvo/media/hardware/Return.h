#pragma once

#include <utility>

#include "kvo/media/hardware/Export.h"
#include "kvo/media/hardware/Status.h"

namespace kvo::media::hardware {

/// The status of an operation together with its value. After an error the value is T's default
/// unless the operation says otherwise.
template <typename T>
class KVO_MEDIA_EXPORT Return {
public:
    Return() = default;
    // NOLINTNEXTLINE(google-explicit-constructor): `return status;` is how operations fail.
    Return(Status status) : mStatus(status) {}
    Return(Status status, T value) : mStatus(status), mValue(std::move(value)) {}
    Return(Return const&) = default;
    Return(Return&&) noexcept = default;
    Return& operator=(Return const&) = default;
    Return& operator=(Return&&) noexcept = default;
    virtual ~Return() = default;

    [[nodiscard]] Status status() const { return mStatus; }

    [[nodiscard]] T const& value() const& { return mValue; }
    [[nodiscard]] T& value() & { return mValue; }
    /// Gives the value away: for a caller that is done with the Return.
    [[nodiscard]] T&& value() && { return std::move(mValue); }

private:
    Status mStatus;
    T mValue{};
};

/// The status of an operation without a value.
template <>
class KVO_MEDIA_EXPORT Return<void> {
public:
    Return() = default;
    // NOLINTNEXTLINE(google-explicit-constructor): `return status;` is how operations fail.
    Return(Status status) : mStatus(status) {}
    Return(Return const&) = default;
    Return(Return&&) noexcept = default;
    Return& operator=(Return const&) = default;
    Return& operator=(Return&&) noexcept = default;
    virtual ~Return() = default;

    [[nodiscard]] Status status() const { return mStatus; }

private:
    Status mStatus;
};

}  // namespace kvo::media::hardware
