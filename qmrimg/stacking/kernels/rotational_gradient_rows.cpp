#include "qmrimg/stacking/kernels/rotational_gradient_rows.h"

#include <algorithm>
#include <cmath>

#include "qmrimg/image/bilinear.h"

namespace qmr {
namespace {

constexpr int kChunk = 256;

// From the last column and row on, a position is held there.
float SampleOrZero(const PlaneRows& plane, const Position& at) {
  if (!IsInside(at, plane.width, plane.height)) return 0.0f;
  return SampleBilinear(plane, std::min<double>(at.x, plane.width - 1), std::min<double>(at.y, plane.height - 1));
}

}  // namespace

void RotationalGradientRow(const RotationalGradient& gradient, const PlaneRows* planes, int planeCount, int left, int y,
                           int count, float* const* out) {
  const RotationalGradient g = gradient;
  const double gain = g.strength + 2.0;
  Position ahead[kChunk];
  Position behind[kChunk];
  for (int start = 0; start < count; start += kChunk) {
    const int length = std::min(kChunk, count - start);
    for (int i = 0; i < length; ++i) {
      const double dx = left + start + i - g.centerX;
      const double dy = y - g.centerY;
      const double r = std::sqrt(dx * dx + dy * dy);
      // From the y axis on purpose, hence sines go with x.
      const double t = std::atan2(dx, dy);
      ahead[i] = {std::sin(t + g.angle) * r + g.centerX, std::cos(t + g.angle) * r + g.centerY};
      behind[i] = {std::sin(t - g.angle) * r + g.centerX, std::cos(t - g.angle) * r + g.centerY};
    }
    for (int p = 0; p < planeCount; ++p) {
      const PlaneRows& plane = planes[p];
      const float* const from = plane.rows[y] + left + start;
      float* const to = out[p] + start;
      for (int i = 0; i < length; ++i) {
        double v = from[i] * gain - SampleOrZero(plane, ahead[i]) - SampleOrZero(plane, behind[i]);
        if (g.strength != 0.0) v /= g.strength;
        to[i] = static_cast<float>(v);
      }
    }
  }
}

void BlendToneBandRow(const float* original, const ToneBand& band, float* filtered, int count) {
  const ToneBand b = band;
  for (int i = 0; i < count; ++i) {
    const float o = original[i];
    float v = filtered[i];
    if (b.protect && o > v) v += (o - v) * b.fraction;
    if (o < b.lowStart || o > b.highEnd) {
      v = o;
    } else if (o < b.lowFull || o > b.highFull) {
      const float w = o < b.lowFull ? (o - b.lowStart) / b.lowSpan : (b.highEnd - o) / b.highSpan;
      v = v * w + (1.0f - w) * o;
    }
    filtered[i] = v;
  }
}

}  // namespace qmr
