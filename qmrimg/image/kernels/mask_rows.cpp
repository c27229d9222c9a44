#include "qmrimg/image/kernels/mask_rows.h"

#include <cstddef>

namespace qmr {

void BlendRow(std::span<const float> base, std::span<const float> top, std::span<const float> mask,
              std::span<float> out, const MaskLevels& levels) {
  const float* const low = base.data();
  const float* const high = top.data();
  const float* const m = mask.data();
  float* const to = out.data();
  const std::size_t width = out.size();
  const MaskLevels l = levels;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float value = (m[x] - l.low) * l.gain;
    const float raised = value < 0.0f ? 0.0f : value;
    const float weight = raised > 1.0f ? 1.0f : raised;
    to[x] = (high[x] - low[x]) * weight + low[x];
  }
}

}  // namespace qmr
