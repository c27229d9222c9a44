// Sums, minima and maxima of rows. The sums run from left to right, float or double as their users demand.
#pragma once

#include <cstdint>
#include <span>

namespace qmr {

struct PlaneStatistics {
  float min = 0.0f;
  float max = 0.0f;
  float sum = 0.0f;
  std::int64_t count = 0;
};

// Takes in every pixel; with `start`, minimum and maximum begin with the row's first one.
void AddRow(std::span<const float> row, bool start, PlaneStatistics& statistics);

// Takes in the pixels that are not 0.0; the caller has set minimum and maximum.
void AddNonZeroRow(std::span<const float> row, PlaneStatistics& statistics);

float SumFloat(std::span<const float> row);
double SumDouble(std::span<const float> row);
// Squares in float, their sum in double.
double SumFloatSquares(std::span<const float> row);

}  // namespace qmr
