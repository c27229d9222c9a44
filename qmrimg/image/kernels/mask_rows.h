// Blending of rows under a mask.
#pragma once

#include <span>

namespace qmr {

// A mask's weight is (value - low) * gain, limited to 0..1. Raw scale of the mask.
struct MaskLevels {
  float low;
  float gain;
};

// (top - base) * weight of `mask` + base, in float. The rows have one width;
// `out` may be any of them.
void BlendRow(std::span<const float> base, std::span<const float> top, std::span<const float> mask,
              std::span<float> out, const MaskLevels& levels);

}  // namespace qmr
