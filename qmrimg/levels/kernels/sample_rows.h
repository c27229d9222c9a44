// Sums over rows of samples. Sums run from left to right in double.
#pragma once

#include <cstdint>
#include <limits>
#include <span>

#include "qmrimg/image/kernels/level_rows.h"

namespace qmr {

struct SampleSums {
  double sum = 0.0;
  std::int64_t count = 0;
};

struct SampleExtremes {
  double min = std::numeric_limits<double>::infinity();
  double max = -std::numeric_limits<double>::infinity();
};

// The brightness weights on raw pixels, rounded to float.
void RawLuminanceRow(std::span<const float> r, std::span<const float> g, std::span<const float> b,
                     std::span<float> out);

void AddSamples(std::span<const float> samples, SampleSums& sums);
// Squares of the distance from `centre`.
void AddSquares(std::span<const float> samples, double centre, SampleSums& sums);
// Only the samples from `low` to `high`, both included.
void AddSamplesInRange(std::span<const float> samples, float low, float high, SampleSums& sums);
void AddSquaresInRange(std::span<const float> samples, float low, float high, double centre, SampleSums& sums);

// Not-a-number is left out.
void TakeExtremes(std::span<const float> samples, SampleExtremes& extremes);
// Of the luminance on the 256-scale, in double.
void TakeLuminanceExtremes(std::span<const float> r, std::span<const float> g, std::span<const float> b,
                           const RowLevels (&levels)[3], SampleExtremes& extremes);

// sums[(first + i) / block] += samples[i], in float.
void AddToBlocks(std::span<const float> samples, std::size_t first, int block, std::span<float> sums);

// dst = (src - offsetIn) * scale + offsetOut in double, stored as float.
struct Stretch {
  double scale;
  double offsetIn;
  float offsetOut;
};
void StretchRow(std::span<const float> src, std::span<float> dst, const Stretch& stretch);

}  // namespace qmr
