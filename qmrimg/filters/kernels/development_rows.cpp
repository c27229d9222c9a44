#include "qmrimg/filters/kernels/development_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "qmrimg/image/pixel_math.h"

namespace qmr {
namespace {

// Columns at once: the values between two steps stay in the nearest cache.
constexpr std::size_t kPiece = 512;

float To256(float v, Scale256 s) {
  return (v - s.min) * s.scale;
}

// At or below its start the curve does not act. Not-a-number is not below.
bool IsFlat(float v, const GammaCurve& curve) {
  return v - curve.low <= 0.0f;
}

float Power(float base, double exponent) {
  return static_cast<float>(std::pow(static_cast<double>(base), exponent));
}

// Only the power itself has no vector form; pixels below the curve don't pay for it.
void BendPiece(const GammaCurve& curve, const float* from, float* to, std::size_t count) {
  const GammaCurve c = curve;
  const double exponent = c.exponent;
  float power[kPiece];
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) power[x] = (from[x] - c.low) / c.span;
  for (std::size_t x = 0; x < count; ++x)
    if (!IsFlat(from[x], c)) power[x] = Power(power[x], exponent);
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) to[x] = IsFlat(from[x], c) ? from[x] : power[x] * c.span + c.low;
}

// The mask of columns x .. x + count - 1 on the raw scale of the developed plane, through the 256-scale.
void RawMask(const Development& plane, const MaskRows& masks, std::size_t x, std::size_t count, float* out) {
  const double min = plane.levelMin, range = plane.levelRange;
  const float* const first = masks.rows[0].data() + x;
  const Scale256 s0 = masks.scales[0], s1 = masks.scales[1], s2 = masks.scales[2];
  if (masks.count == 1) {
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i)
      out[i] = static_cast<float>(ToRaw(static_cast<double>(To256(first[i], s0)), min, range));
    return;
  }
  const float* const second = masks.rows[1].data() + x;
  const float* const third = masks.rows[2].data() + x;
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    const float sum = To256(second[i], s1) + To256(first[i], s0) + To256(third[i], s2);
    out[i] = static_cast<float>(ToRaw(static_cast<double>(sum) / 3.0, min, range));
  }
}

// Columns that all masks cover.
std::size_t Covered(const MaskRows& masks, std::size_t width) {
  if (masks.count == 0) return 0;
  for (int i = 0; i < masks.count; ++i) width = std::min(width, masks.rows[i].size());
  return width;
}

// Calls develop(from, to, mask, count) piece by piece, and copies what has no mask.
template <class DevelopPiece>
void ForPieces(const Development& plane, const MaskRows& masks, std::span<const float> src, std::span<float> dst,
               DevelopPiece&& develop) {
  const float* const from = src.data();
  float* const to = dst.data();
  const std::size_t covered = Covered(masks, src.size());
  float mask[kPiece];
  for (std::size_t x = 0; x < covered; x += kPiece) {
    const std::size_t count = std::min(kPiece, covered - x);
    RawMask(plane, masks, x, count, mask);
    develop(from + x, to + x, mask, count);
  }
  for (std::size_t x = covered; x < src.size(); ++x) to[x] = from[x];
}

}  // namespace

float Bend(float v, const GammaCurve& curve) {
  if (!curve.Bends() || IsFlat(v, curve)) return v;
  return Power((v - curve.low) / curve.span, curve.exponent) * curve.span + curve.low;
}

void BendRow(const GammaCurve& curve, std::span<const float> src, std::span<float> dst) {
  const float* const from = src.data();
  float* const to = dst.data();
  for (std::size_t x = 0; x < src.size(); x += kPiece) {
    const std::size_t count = std::min(kPiece, src.size() - x);
    if (curve.Bends())
      BendPiece(curve, from + x, to + x, count);
    else
      for (std::size_t i = x; i < x + count; ++i) to[i] = from[i];
  }
}

void BendThenDevelopRow(const Development& plane, const MaskRows& masks, std::span<const float> src,
                        std::span<float> dst) {
  const Development d = plane;
  ForPieces(d, masks, src, dst, [&d](const float* from, float* to, float* mask, std::size_t count) {
    float bent[kPiece];
    if (d.gamma.Bends()) {
      BendPiece(d.gamma, mask, mask, count);
      BendPiece(d.gamma, from, bent, count);
      from = bent;
    }
    const Scale256 s = d.scale;
    const float offset = d.offset, multiplier = d.multiplier;
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) {
      const float divisor = To256(mask[x], s) + offset;
      const float developed = To256(from[x], s) / divisor * multiplier / s.scale + s.min;
      to[x] = divisor > 0.0f ? developed : from[x];
    }
  });
}

void DevelopThenBendRow(const Development& plane, const MaskRows& masks, std::span<const float> src,
                        std::span<float> dst) {
  const Development d = plane;
  ForPieces(d, masks, src, dst, [&d](const float* from, float* to, const float* mask, std::size_t count) {
    const Scale256 s = d.scale;
    const float offset = d.offset, multiplier = d.multiplier;
    float result[kPiece];
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) {
      const float value = To256(from[x], s);
      const float divisor = To256(mask[x], s) + offset;
      const float developed = value / divisor * multiplier;
      result[x] = divisor > 0.0f ? developed : value;
    }
    if (d.gamma.Bends()) BendPiece(d.gamma, result, result, count);
    const double min = d.levelMin, range = d.levelRange;
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x)
      to[x] = static_cast<float>(ToRaw(static_cast<double>(result[x]), min, range));
  });
}

}  // namespace qmr
