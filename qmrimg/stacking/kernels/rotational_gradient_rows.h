// The rotational gradient of a row, and the tones that it is limited to.
#pragma once

#include "qmrimg/geometry/kernels/window.h"

namespace qmr {

struct RotationalGradient {
  double angle;  // radians
  double strength;
  double centerX;
  double centerY;
};

// Row y of `planeCount` planes, columns left..left + count - 1, all of them inside the source: (strength + 2) times the
// pixel less the two pixels turned about the centre, by the strength where that isn't 0. Samples beyond the source are
// 0.0. `out` must not be the source's rows.
void RotationalGradientRow(const RotationalGradient& gradient, const PlaneRows* planes, int planeCount, int left, int y,
                           int count, float* const* out);

// Raw levels, floats like all arithmetic with them. Between the full ones a pixel is filtered, beyond the outer ones
// it stays as it is.
struct ToneBand {
  float lowStart, lowFull, lowSpan;
  float highFull, highEnd, highSpan;
  bool protect;
  float fraction;  // of the way from the filtered pixel back to a brighter original
};

// `filtered` becomes what the band leaves of it.
void BlendToneBandRow(const float* original, const ToneBand& band, float* filtered, int count);

}  // namespace qmr
