// One row of a stack from the rows of its frames.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/night/options.h"
#include "qmrimg/stacking/kernels/stack_rows.h"

namespace qmr {

// Rows of the same pixels from several frames; `valid` says per frame and pixel whether the frame covers it. An empty
// `valid` means that all do.
struct FrameRows {
  std::vector<const float*> values;
  std::vector<const std::uint8_t*> valid;
};

// Combines rows of a fixed number of frames by one method. A pixel that no frame covers is 0. Kappa-sigma drops what
// lies farther than kappa standard deviations from the median and takes the mean of the rest. One object a thread.
class RowCombiner {
 public:
  RowCombiner(CombineMethod method, double kappa, std::size_t frames);
  void Combine(const FrameRows& rows, std::span<float> out);

 private:
  CombineMethod method_;
  StackPlan plan_;
};

}  // namespace qmr
