// Measures of frames in words and for programs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/measure/frame_measure.h"

namespace qmr {

struct MeasureReport {
  struct Failed {
    std::string path, reason;
  };
  std::vector<FrameMeasure> frames;
  std::vector<Failed> failed;
  std::optional<std::size_t> sharpest;
  std::vector<MeasureOptions::Place> at;
};

// One frame: its summary and its stars. Several: a line a frame with the sharpest marked and, with `stars`, the stars
// of each behind that.
std::string MeasureText(const MeasureReport& report, bool stars);
// Everything; what is not known is null.
std::string MeasureJson(const MeasureReport& report);

}  // namespace qmr
