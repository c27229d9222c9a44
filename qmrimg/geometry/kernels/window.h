// One sample at a position inside the source. Indices beyond the border repeat the border pixel.
#pragma once

#include <algorithm>
#include <cstddef>

#include "qmrimg/geometry/kernels/weights.h"
#include "qmrimg/platform/truncate.h"

namespace qmr {

// The rows of one plane. Positions that the functions below accept: 0 <= x <= width, 0 <= y <= height.
struct PlaneRows {
  const float* const* rows;
  int width;
  int height;
  // Floats from one row to the next when the rows are evenly spaced, else 0.
  std::ptrdiff_t stride = 0;

  float At(int x, int y) const { return rows[std::clamp(y, 0, height - 1)][std::clamp(x, 0, width - 1)]; }
};

// Row sums over the columns, then the weighted sum over the rows, in double, rounded once.
template <class Taps>
float SampleWindow(const PlaneRows& plane, double x, double y) {
  const int ix = static_cast<int>(x);
  const int iy = static_cast<int>(y);
  double weightsX[Taps::kTaps];
  double weightsY[Taps::kTaps];
  Taps::Weights(x - ix, weightsX, 1);
  Taps::Weights(y - iy, weightsY, 1);
  double sum = 0.0;
  for (int r = 0; r < Taps::kTaps; ++r) {
    const int row = iy - Taps::kBefore + r;
    double rowSum = 0.0;
    for (int c = 0; c < Taps::kTaps; ++c)
      rowSum += static_cast<double>(plane.At(ix - Taps::kBefore + c, row)) * weightsX[c];
    sum += weightsY[r] * rowSum;
  }
  return static_cast<float>(sum);
}

// Four corners. Where a fraction is 0 its neighbour is replaced, so that it never reaches the sum.
inline double BlendCorners(double p00, double p10, double p01, double p11, double fx, double fy) {
  const double cross = fx * fy;
  return p00 * (1.0 - fx) * (1.0 - fy) + p10 * (fx - cross) + p01 * (fy - cross) + p11 * fx * fy;
}

inline float SampleBilinear(const PlaneRows& plane, double x, double y) {
  const int ix = static_cast<int>(x);
  const int iy = static_cast<int>(y);
  const double fx = x - ix;
  const double fy = y - iy;
  if (fx == 0.0 && fy == 0.0) return plane.At(ix, iy);
  const int right = fx == 0.0 ? ix : ix + 1;
  const int lower = fy == 0.0 ? iy : iy + 1;
  return static_cast<float>(
      BlendCorners(plane.At(ix, iy), plane.At(right, iy), plane.At(ix, lower), plane.At(right, lower), fx, fy));
}

// Accepts every position; not-a-number is 0.
inline float SampleNearest(const PlaneRows& plane, double x, double y) {
  return plane.At(TruncateToInt(x + 0.5), TruncateToInt(y + 0.5));
}

}  // namespace qmr
