#pragma once

#include "kvo/media/hardware/KeyValueMap.h"

namespace kvo::media::hardware {

/// The settings of one codec or image sink. The keys that this library reads and writes are in
/// ConfigurationKeys.h; all others pass through.
class Configuration : public KeyValueMap {};

}  // namespace kvo::media::hardware
