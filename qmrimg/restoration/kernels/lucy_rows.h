// Rows of the Richardson-Lucy iteration. Elements are computed in single precision unless a name says otherwise; sums
// run in double, column x in lane x % 16, the lanes added in order.
#pragma once

#include <cstddef>
#include <limits>

namespace qmr {

// What a run knows of the noise.
struct LucyNoise {
  double gain;         // electrons a unit
  double constant;     // read noise squared / gain
  double background;   // added to the model
  float readVariance;  // read noise squared
};

struct LucySums {
  double first = 0.0;
  double second = 0.0;
};

// Sums of mask * data and of mask.
LucySums MeanRow(const float* data, const float* mask, std::size_t count);
float LargestOfRow(const float* row, std::size_t count);
// Where the normalising image is below `floor` it can't be divided by: 1 there, and nothing in the estimate.
void FloorRow(float floor, float* norm, float* estimate, std::size_t count);

// (data + constant + background) / (blurred + constant + background) * mask: both sums in double, then rounded; a
// denominator of 0 counts as 1.
void RatioRow(const float* data, const float* mask, const float* blurred, const LucyNoise& noise, float* ratio,
              std::size_t count);
// `correlation` is that of the ratio. The plain step: estimate *= correlation / norm.
void CorrectRow(const float* correlation, const float* norm, float* estimate, std::size_t count);
// The step to the corrected estimate, in place of `correlation`.
void StepRow(const float* estimate, const float* norm, float* correlation, std::size_t count);

// Numerator and denominator of -beta, in double. Pixels whose model is 0 are left out.
LucySums ConjugateRow(const float* blurredStep, const float* previous, const float* mask, const float* data,
                      const float* estimate, const LucyNoise& noise, std::size_t count);
// previous = step + factor * previous.
void CombineRow(const float* step, float factor, float* previous, std::size_t count);

struct LucyRange {
  float largest = std::numeric_limits<float>::infinity();    // least of -estimate / step where step < 0
  float smallest = -std::numeric_limits<float>::infinity();  // largest of it where step > 0
};

// How far the step may be followed until a pixel of the estimate gets negative. Pixels that are negative already
// become 0, and stay there.
LucyRange RangeRow(float* estimate, float* step, std::size_t count);

// First and (negative) second derivative of the likelihood along the step, at `factor` times the step.
LucySums NewtonRow(const float* data, const float* mask, const float* blurred, const float* blurredStep, float factor,
                   const LucyNoise& noise, std::size_t count);
// step *= factor, then sum += step.
void AdvanceRow(float factor, float* step, float* sum, std::size_t count);

// The terms of the chi-square; a pixel without a variance has none.
double ChiRow(const float* data, const float* mask, const float* blurred, const LucyNoise& noise, std::size_t count);

}  // namespace qmr
