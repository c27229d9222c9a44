// Dark and flat calibration of rows. Raw scale; destination and source may be one row. All rows of a call have the
// length of `to`.
#pragma once

#include <span>

#include "qmrimg/platform/export.h"

namespace qmr {

// from - dark, 0 where that is not above 0.
QMR_API void DarkRow(std::span<const float> from, std::span<const float> dark, std::span<float> to);

// The flat of one plane. With `gamma` above 0 the flat values are bent within low..high before they divide, and
// `average` must have been bent in the same way.
struct FlatLevels {
  float average;
  // Added to every flat value: average * pedestal.
  float lift;
  float high;
  float low;
  double gamma;

  // From the flat's minimum, maximum and mean.
  QMR_API static FlatLevels Of(float min, float max, float average, float pedestal, double gamma);
};

// pow((value - low) / span, gamma) * span + low with span = high - low: bends values inside the range and leaves its
// ends. The quotient is formed in float, the rest in double.
float BendFlat(float value, float high, float low, double gamma);

// from * average / (lift + flat) in float, from left to right; the pixel stays where that divisor is
// not above 0.
QMR_API void FlatRow(std::span<const float> from, std::span<const float> flat, std::span<float> to,
                     const FlatLevels& levels);

// Dark, then flat, in one pass.
QMR_API void DarkFlatRow(std::span<const float> from, std::span<const float> dark, std::span<const float> flat,
                         std::span<float> to, const FlatLevels& levels);

}  // namespace qmr
