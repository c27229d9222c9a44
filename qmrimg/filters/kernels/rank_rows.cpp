#include "qmrimg/filters/kernels/rank_rows.h"

#include <cmath>
#include <cstddef>

namespace qmr {
namespace {

// How far two pixels are apart as a fraction of the second: the quotient in float, the rest in double.
double Distance(float a, float b) {
  const float quotient = a / b;
  return std::fabs(static_cast<double>(quotient) - 1.0);
}

}  // namespace

void NoiseCutRow(std::span<const float> source, std::span<const float> medians, const NoiseRule& rule,
                 std::span<float> out) {
  const NoiseRule r = rule;
  const float* const pixels = source.data();
  const float* const values = medians.data();
  float* const to = out.data();
  const std::size_t width = out.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float c = pixels[x];
    const float m = values[x];
    const double distance = Distance(m, c);
    const bool cool = r.cool & (m > c) & (distance > r.coolThreshold);
    const bool hot = r.hot & (m < c) & (distance > r.hotThreshold);
    to[x] = (cool | hot) ? m : c;
  }
}

void StarSharpRow(std::span<const float> source, std::span<const float> low, std::span<const float> high,
                  float fraction, std::span<const float> greatest, const PeakRule& rule, std::span<float> out) {
  const PeakRule r = rule;
  const float* const pixels = source.data();
  const float* const lower = low.data();
  const float* const upper = high.empty() ? nullptr : high.data();
  const bool ruled = !greatest.empty();
  const float* const peaks = ruled ? greatest.data() : lower;
  float* const to = out.data();
  const std::size_t width = out.size();
  const bool near = r.threshold != 0.0;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float c = pixels[x];
    const float value = upper ? (upper[x] - lower[x]) * fraction + lower[x] : lower[x];
    const bool isPeak = ruled & r.keepPeaks & (peaks[x] == c);
    const bool isNear = ruled & near & (Distance(value, peaks[x]) < r.threshold);
    to[x] = (isPeak | isNear) ? c : value;
  }
}

}  // namespace qmr
