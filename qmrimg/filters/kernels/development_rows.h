// Digital development of one row: pixels divided by a blurred copy of themselves.
#pragma once

#include <span>

namespace qmr {

// low + span * ((v - low) / span)^exponent above `low`; values at or below it stay. The quotient is taken in float, the
// power in double and rounded to float, the rest in float.
struct GammaCurve {
  float exponent = 1.0f;
  float low = 0.0f;
  float span = 0.0f;

  bool Bends() const { return exponent != 1.0f; }
};

float Bend(float v, const GammaCurve& curve);
// The rows may be one. An exponent of 1 copies.
void BendRow(const GammaCurve& curve, std::span<const float> src, std::span<float> dst);

// The 256-scale of a plane in float: (v - min) * scale.
struct Scale256 {
  float min;
  float scale;
};

// Constants of one plane.
struct Development {
  Scale256 scale;
  // The plane's levels, raw scale, for the steps in double.
  double levelMin;
  double levelRange;
  // a and k of out = k * x / (y + a), 256-scale.
  float offset;
  float multiplier;
  // Raw scale where the curve comes before the division, 256-scale where it comes after.
  GammaCurve gamma;
};

// The masks of a row, raw scale, each with the 256-scale of its own plane: one, or three whose mean divides.
struct MaskRows {
  int count = 0;
  std::span<const float> rows[3];
  Scale256 scales[3] = {};
};

// The gamma curve on pixel and mask, then the division. A pixel whose divisor is not above 0 is not divided. Columns
// beyond the masks are copied. Source and destination have one length and may be one row.
void BendThenDevelopRow(const Development& plane, const MaskRows& masks, std::span<const float> src,
                        std::span<float> dst);
// The division, then the gamma curve over the 256-scale.
void DevelopThenBendRow(const Development& plane, const MaskRows& masks, std::span<const float> src,
                        std::span<float> dst);

}  // namespace qmr
