#pragma once

#include <string>
#include <vector>

#include "kvo/media/hardware/KeyValueMap.h"

/// The keys in the process that ConfigurationKeys.h does not know. A codec may have such keys of
/// its own, but then it reads them. Every operation may be called from any thread.
namespace kvo::host {

/// A key was added to a map.
void noteKeyAdded(char const* key);

/// The value of a key that is in a map was read.
void noteKeyRead(char const* key);

/// A wrapper was configured with a map.
void noteKeysGiven(void const* wrapper, media::hardware::KeyValueMap const& map);

/// Returns the unknown keys of the wrapper's maps that nobody has read since, in no map, each only
/// once in the life of the process.
std::vector<std::string> takeUnreadKeys(void const* wrapper);

/// Returns the known key that is most like `key`.
std::string nearestKnownKey(std::string const& key);

}  // namespace kvo::host
