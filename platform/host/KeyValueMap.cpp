#include "kvo/media/hardware/KeyValueMap.h"

namespace kvo::media::hardware {

KeyValueMap::~KeyValueMap() = default;

void KeyValueMap::setInt32(char const* key, std::int32_t value) { setInt64(key, value); }

std::int32_t KeyValueMap::getInt32(char const* key, std::int32_t defaultValue) const {
    return static_cast<std::int32_t>(getInt64(key, defaultValue));
}

void KeyValueMap::setInt64(char const* key, std::int64_t value) { mValues[key] = value; }

std::int64_t KeyValueMap::getInt64(char const* key, std::int64_t defaultValue) const {
    auto const entry = mValues.find(key);
    return entry == mValues.end() ? defaultValue : entry->second;
}

}  // namespace kvo::media::hardware
