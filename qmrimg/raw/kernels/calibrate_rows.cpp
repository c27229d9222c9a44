#include "qmrimg/raw/kernels/calibrate_rows.h"

#include <cmath>
#include <cstddef>

namespace qmr {
namespace {

inline float LessDark(float v, float dark) {
  const float d = v - dark;
  return d > 0.0f ? d : 0.0f;
}

// Written as a choice between two values, so that the loop over a row has no branch.
inline float OverFlat(float v, float average, float divisor) {
  const float divided = v * average / divisor;
  return divisor > 0.0f ? divided : v;
}

}  // namespace

FlatLevels FlatLevels::Of(float min, float max, float average, float pedestal, double gamma) {
  // The range reaches as far below the minimum as the maximum lies above it, so that the base of the power stays at
  // 0.5 or above for every value of the flat.
  const auto low = static_cast<float>(max - 2.0 * static_cast<double>(max - min));
  const float level = gamma > 0.0 ? BendFlat(average, max, low, gamma) : average;
  return {level, level * pedestal, max, low, gamma};
}

float BendFlat(float value, float high, float low, double gamma) {
  const float span = high - low;
  const float share = (value - low) / span;
  return static_cast<float>(std::pow(static_cast<double>(share), gamma) * span + low);
}

void DarkRow(std::span<const float> from, std::span<const float> dark, std::span<float> to) {
  const float* const v = from.data();
  const float* const d = dark.data();
  float* const out = to.data();
  const std::size_t width = to.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) out[x] = LessDark(v[x], d[x]);
}

void FlatRow(std::span<const float> from, std::span<const float> flat, std::span<float> to, const FlatLevels& levels) {
  const float* const v = from.data();
  const float* const f = flat.data();
  float* const out = to.data();
  const std::size_t width = to.size();
  const float average = levels.average;
  const float lift = levels.lift;
  if (levels.gamma > 0.0) {
    for (std::size_t x = 0; x < width; ++x)
      out[x] = OverFlat(v[x], average, lift + BendFlat(f[x], levels.high, levels.low, levels.gamma));
    return;
  }
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) out[x] = OverFlat(v[x], average, lift + f[x]);
}

void DarkFlatRow(std::span<const float> from, std::span<const float> dark, std::span<const float> flat,
                 std::span<float> to, const FlatLevels& levels) {
  const float* const v = from.data();
  const float* const d = dark.data();
  const float* const f = flat.data();
  float* const out = to.data();
  const std::size_t width = to.size();
  const float average = levels.average;
  const float lift = levels.lift;
  if (levels.gamma > 0.0) {
    for (std::size_t x = 0; x < width; ++x)
      out[x] = OverFlat(LessDark(v[x], d[x]), average, lift + BendFlat(f[x], levels.high, levels.low, levels.gamma));
    return;
  }
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) out[x] = OverFlat(LessDark(v[x], d[x]), average, lift + f[x]);
}

}  // namespace qmr
