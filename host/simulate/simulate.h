#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "host/simulate/options.h"

namespace qmr {

// Where a simulation reports and asks; empty functions are silence. All calls come from the calling thread.
struct SimulateProgress {
  std::function<void(std::int64_t done, std::int64_t total)> report;  // units: frames
  std::function<bool()> cancelled;                                    // asked before each frame
};

struct SimulateResult {
  bool cancelled = false;
  std::string error;  // one line; empty on success and when cancelled
  int frames = 0;     // files of all four kinds
  std::int64_t bytes = 0;
  bool Ok() const { return !cancelled && error.empty(); }
};

// Writes a night into `folder`, which is made if missing: lights/light_00001.fit ..., darks/, flats/, biases/ as
// 16-bit unsigned FITS, and truth.json (see truth.h). A folder that already holds truth.json or files in one of the
// four folders is refused unless `options.force`, which replaces frames of an earlier simulation and touches no
// other file. When cancelled or failed, the files and folders that this call made are gone again.
SimulateResult Simulate(const SimulateOptions& options, const std::string& folder,
                        const SimulateProgress& progress = {});

}  // namespace qmr
