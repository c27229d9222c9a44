#pragma once

#include <vector>

#include "host/simulate/options.h"
#include "host/simulate/truth.h"

namespace qmr::sim {

// Pointing, weather and trails of every light frame, file names included.
std::vector<TruthFrame> MakeSchedule(const SimulateOptions& options);

}  // namespace qmr::sim
