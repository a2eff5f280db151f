#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "kvo/media/hardware/Export.h"

namespace kvo::media::hardware {

/// Text keys with integer values, copied whole. Keys are compared as whole strings, with case.
/// Not locked: an object belongs to one thread at a time.
class KVO_MEDIA_EXPORT KeyValueMap {
public:
    KeyValueMap() = default;
    KeyValueMap(KeyValueMap const&) = default;
    KeyValueMap(KeyValueMap&&) = default;
    KeyValueMap& operator=(KeyValueMap const&) = default;
    KeyValueMap& operator=(KeyValueMap&&) = default;
    virtual ~KeyValueMap();

    /// Stores `value`, sign-extended to 64 bits, under `key`: replaces the value of an existing
    /// entry, else adds one.
    void setInt32(char const* key, std::int32_t value);

    /// Returns the low 32 bits of the value under `key`, or `defaultValue` when the key is absent.
    [[nodiscard]] std::int32_t getInt32(char const* key, std::int32_t defaultValue) const;

    /// Stores a full 64-bit `value` under `key`, as setInt32 does.
    void setInt64(char const* key, std::int64_t value);

    /// Returns the value under `key`, or `defaultValue` when the key is absent.
    [[nodiscard]] std::int64_t getInt64(char const* key, std::int64_t defaultValue) const;

    /// Returns the number of entries.
    [[nodiscard]] std::size_t size() const { return mValues.size(); }

private:
    std::unordered_map<std::string, std::int64_t> mValues;
};

}  // namespace kvo::media::hardware
