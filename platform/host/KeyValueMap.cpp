#include "kvo/media/hardware/KeyValueMap.h"

#include "host/UnknownKeys.h"

namespace kvo::media::hardware {

KeyValueMap::~KeyValueMap() = default;

void KeyValueMap::setInt32(char const* key, std::int32_t value) { setInt64(key, value); }

std::int32_t KeyValueMap::getInt32(char const* key, std::int32_t defaultValue) const {
    return static_cast<std::int32_t>(getInt64(key, defaultValue));
}

void KeyValueMap::setInt64(char const* key, std::int64_t value) {
    if (mValues.insert_or_assign(key, value).second) {
        host::noteKeyAdded(key);
    }
}

std::int64_t KeyValueMap::getInt64(char const* key, std::int64_t defaultValue) const {
    auto const entry = mValues.find(key);
    if (entry == mValues.end()) {
        return defaultValue;
    }
    host::noteKeyRead(key);
    return entry->second;
}

}  // namespace kvo::media::hardware
