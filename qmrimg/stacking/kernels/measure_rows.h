// Sums and ranks of the pixels that star, sky and focus measures are made of. Sums are in double, over columns in
// lanes of their own, so that they depend on the row alone.
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace qmr {

// Not-a-number is no minimum or maximum.
struct PixelSums {
  float min = std::numeric_limits<float>::infinity();
  float max = -std::numeric_limits<float>::infinity();
  double sum = 0.0;
};
PixelSums SumRow(std::span<const float> row);
PixelSums Merge(const PixelSums& a, const PixelSums& b);
double SumSquaredDeviations(std::span<const float> row, double mean);

// Of |a - b| over the length of `a`, the differences in float.
double SumDifferences(std::span<const float> a, std::span<const float> b);

// Some bits of a pixel's place in the order of all values, beneath those that are known.
struct RankDigit {
  std::uint32_t known;
  std::uint32_t knownMask;
  int shift;
  int bits;
};
// Counts the pixels with the known bits by their digit.
void CountDigits(std::span<const float> row, const RankDigit& digit, std::int64_t* counts);

// Ascending; not-a-number comes last.
void SortAscending(std::vector<float>& values);

// Population form.
struct SortedStatistics {
  double mean = 0.0;
  double sd = 0.0;
};
// Terms are added in the order of the values. Nothing of an empty span.
SortedStatistics StatisticsInOrder(std::span<const float> sorted);

}  // namespace qmr
