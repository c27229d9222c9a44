#include "qmrimg/raw/kernels/tone_rows.h"

#include <cmath>
#include <cstddef>

namespace qmr {
namespace {

// The raw value is compared with the break, not its height above lo, on purpose: with lo other than 0 the break lies
// elsewhere than the slopes suggest, and developed images depend on it.
inline float Knee(float v, const GainCurve& c) {
  const float d = v - c.lo;
  const float bent = c.k1 > v ? static_cast<float>(c.gain * d) : static_cast<float>((d - c.k1) * c.slope + c.k2);
  return bent + c.lo;
}

template <bool kKnee, bool kClip>
inline float Curve(float v, const GainCurve& c) {
  if constexpr (kKnee) {
    const float bent = Knee(v, c);
    if constexpr (kClip) {
      const float raised = v < c.lo ? c.lo : bent;
      return v > c.hi ? c.hi : raised;
    }
    return v > c.lo && v < c.hi ? bent : v;
  }
  const float product = static_cast<float>(v * c.gain);
  if constexpr (!kClip) return product;
  const float raised = product < c.lo ? c.lo : product;
  return raised > c.hi ? c.hi : raised;
}

template <bool kKnee, bool kClip>
void Strided(float* row, std::size_t count, const GainCurve& curve) {
  const GainCurve c = curve;
  float* const v = row;
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) v[x] = Curve<kKnee, kClip>(v[x], c);
}

template <bool kKnee, bool kClip>
void Pairs(std::span<float> row, const GainCurve& even, const GainCurve& odd) {
  for (std::size_t x = 0; x < row.size(); ++x) row[x] = Curve<kKnee, kClip>(row[x], x % 2 ? odd : even);
}

}  // namespace

GainCurve::GainCurve(double g, float low, float high, bool knee, bool limit)
    : lo(low), hi(high), useKnee(knee), clip(limit), gain(g) {
  const double range = high - low;
  k1 = range / (g + 1.0);
  k2 = g * range / (g + 1.0);
  slope = (range - k2) / (range - k1);
}

void SubtractBlackRow(std::span<float> row, float black) {
  float* const v = row.data();
  const std::size_t width = row.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) v[x] = v[x] - black;
}

void ScaleBitsRow(std::span<float> row, const BitScale& bits) {
  const BitScale b = bits;
  float* const v = row.data();
  const std::size_t width = row.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) v[x] = b.Apply(v[x]);
}

void ApplyGainRow(std::span<float> row, const GainCurve& c) {
  if (c.useKnee)
    c.clip ? Strided<true, true>(row.data(), row.size(), c) : Strided<true, false>(row.data(), row.size(), c);
  else
    c.clip ? Strided<false, true>(row.data(), row.size(), c) : Strided<false, false>(row.data(), row.size(), c);
}

void ApplyGainPairs(std::span<float> row, const GainCurve& even, const GainCurve& odd) {
  if (even.useKnee)
    even.clip ? Pairs<true, true>(row, even, odd) : Pairs<true, false>(row, even, odd);
  else
    even.clip ? Pairs<false, true>(row, even, odd) : Pairs<false, false>(row, even, odd);
}

void GammaRow(std::span<float> row, double min, double max, double exponent) {
  for (float& p : row) {
    const double above = p - min;
    if (above > 0.0) p = static_cast<float>(std::pow(above / (max - min), exponent) * (max - min) + min);
  }
}

}  // namespace qmr
