#include "qmrimg/filters/kernels/blend_rows.h"

#include <cstddef>

namespace qmr {

void BackgroundRow(std::span<const float> source, std::span<const float> smooth, std::span<float> out,
                   const BackgroundLevels& levels) {
  const float* const pixels = source.data();
  const float* const values = smooth.data();
  float* const to = out.data();
  const std::size_t count = out.size();
  const float high = levels.high;
  const float width = levels.width;
  const float low = high - width;
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) {
    const float c = pixels[x];
    const float m = values[x];
    const float limited = high < m ? high : m;
    // A width of 0 divides by zero only where the ramp is not taken.
    const float t = (c - low) / width;
    const float ramp = limited * (1.0f - t) + t * c;
    const float inside = c > low ? ramp : limited;
    to[x] = c > high ? c : inside;
  }
}

void MixRow(std::span<const float> source, std::span<const float> filtered, std::span<float> out, double mix) {
  const float* const pixels = source.data();
  const float* const values = filtered.data();
  float* const to = out.data();
  const std::size_t width = out.size();
  const double keep = 1.0 - mix;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x)
    to[x] = static_cast<float>(pixels[x] * keep + static_cast<double>(static_cast<float>(values[x] * mix)));
}

}  // namespace qmr
