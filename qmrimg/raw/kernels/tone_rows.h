// What is done to the samples of a mosaic before it is developed: black level, bit depth, white-balance gains.
#pragma once

#include <span>

namespace qmr {

void SubtractBlackRow(std::span<float> row, float black);

// Carries min..min + newMax / scale to 0..newMax, computed in double.
struct BitScale {
  double min;
  double scale;
  double newMax;
  bool limit;

  float Apply(float v) const {
    const double scaled = (v - min) * scale;
    const double raised = limit && scaled < 0.0 ? 0.0 : scaled;
    return static_cast<float>(limit && raised > newMax ? newMax : raised);
  }
};

void ScaleBitsRow(std::span<float> row, const BitScale& bits);

// The gain of one site class. With the knee the curve has slope `gain` up to the break and runs straight from there
// to the top of the range, which it maps onto itself. Raw scale.
struct GainCurve {
  GainCurve() = default;
  GainCurve(double gain, float lo, float hi, bool useKnee, bool clip);

  float lo = 0.0f;
  float hi = 0.0f;
  bool useKnee = false;
  bool clip = false;
  double gain = 1.0;
  // Break and its image, both above lo; slope beyond it.
  double k1 = 0.0;
  double k2 = 0.0;
  double slope = 1.0;
};

void ApplyGainRow(std::span<float> row, const GainCurve& curve);
// `even` on columns 0, 2, ..., `odd` on columns 1, 3, ....
void ApplyGainPairs(std::span<float> row, const GainCurve& even, const GainCurve& odd);

// (v - min) to the power `exponent` within min..max; values not above min stay.
void GammaRow(std::span<float> row, double min, double max, double exponent);

}  // namespace qmr
