#pragma once

#include <vector>

#include "scheduler/Scheduler.h"

namespace interleave {

/// All scenarios: those of the decoder, of the encoder, of the scaler client and the image sink.
std::vector<Scenario> scenarios();

}  // namespace interleave
