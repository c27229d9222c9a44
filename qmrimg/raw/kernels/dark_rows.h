// Blends of two dark rows, in double. `first` is changed; `second` is as long.
#pragma once

#include <span>

namespace qmr {

// (d2 - d1) * r1 + d1 + (d2 - d1) * r2.
void BlendByProportionRow(std::span<float> first, std::span<const float> second, double r1, double r2);
// (d2 - d1) * r + d1 + d1 * power.
void BlendByPowerRow(std::span<float> first, std::span<const float> second, double r, double power);
// (d2 - d1) * r + d1, limited by d2 from above and then by d1 from below.
void BlendByScoreRow(std::span<float> first, std::span<const float> second, double r);

}  // namespace qmr
