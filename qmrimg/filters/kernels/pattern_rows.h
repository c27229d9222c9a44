// Mean, median, rank, Laplacian and unsharp mask over the three fixed patterns, at one pixel and along rows. The two
// forms share their arithmetic, so that a row has the bits of its pixels one by one.
//
// `rows` holds the rows around the pixel's row, 2 * radius + 1 of them. Columns reflect at both ends without
// repeating the end column; on images narrower than the pattern they are clamped after that.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qmrimg/image/kernels/sort_network.h"

namespace qmr {

// The pixel alone; a plus sign of 5; a square of 9; 21 pixels, the 5 by 5 square without its corners.
enum class Pattern { kPoint, kPlus, kSquare, kDisc };

inline constexpr int kPatternMaxRows = 5;

// The pattern of a filter's method number; a number without one is the pixel alone.
Pattern PatternOf(int method);
int PatternRadius(Pattern pattern);
int PatternCount(Pattern pattern);

// Mirrors at 0 without repeating it and at `size` with the last index repeated, then clamps.
int MirrorIndex(std::int64_t index, int size);

// One pixel. The entries of `rows` point at column `x` of an image of `width` columns.
float PatternMean(const float* const* rows, int x, int width, Pattern pattern, double weight, double* plainMean);
float PatternMedian(const float* const* rows, int x, int width, Pattern pattern);
// Not-a-number counts as the largest value. 0.0 for a rank outside the pattern.
float PatternRank(const float* const* rows, int x, int width, Pattern pattern, int rank);
// Always from three rows, also for method 2.
float PatternLaplacian(const float* const* rows, int x, int width, int method, double offset);

// Columns left..right - 1 of a row. The entries of `rows` point at column 0, `to` at the pixel of column `left`;
// they must not overlap.
struct PatternRow {
  const float* const* rows;
  int width;
  int left;
  int right;
  float* to;
};

void MedianRow(const PatternRow& row, Pattern pattern);

// What a rank filter prepares once a call.
struct RankPlan {
  RankPlan(Pattern pattern, int rank);
  Pattern pattern;
  int rank;
  std::vector<Comparator> network;  // empty for minimum and maximum
};
void RankRow(const PatternRow& row, const RankPlan& plan);

void LaplacianRow(const PatternRow& row, int method, double offset);

struct UnsharpSettings {
  double gain;
  double weight;
  double threshold;  // relative contrast against the plain mean
};
void UnsharpRow(const PatternRow& row, Pattern pattern, const UnsharpSettings& settings);

}  // namespace qmr
