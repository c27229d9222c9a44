// Rows that are shifted but not turned: the position advances by exactly 1.0 a column, so that the fraction, and
// with it every weight, stays the same over long segments of a row.
#pragma once

#include <array>

#include "qmrimg/geometry/kernels/window.h"

namespace qmr {

// Columns whose positions are column + k + fraction, k = 0, 1, ..., count - 1, without any rounding.
struct ShiftSegment {
  int first;   // index of the first column within the row
  int count;   // columns
  int column;  // source column of the first position
  double fraction;
};

// A row's positions as segments. A fraction changes only where a position enters the next power of two and its last
// bit no longer fits.
class ShiftSegments {
 public:
  // x[0] = start and x[i + 1] = x[i] + 1.0, rounded one after the other. start >= 0.
  void Accumulate(double start, int count);
  // x[i] = (column + i) + fraction, each rounded once. column >= 0, 0 <= fraction <= 1.
  void Add(int column, double fraction, int count);
  const ShiftSegment* begin() const { return items_.data(); }
  const ShiftSegment* end() const { return items_.data() + size_; }

 private:
  std::array<ShiftSegment, 40> items_;
  int size_ = 0;
};

// out[i] = sum over the window of `Taps` taps of row[column + i + tap] * weights[tap], in column order; columns
// beyond the border repeat the border pixel.
template <int Taps>
void HorizontalSums(const float* row, int width, int column, int count, const double* weights, double* out);

// out[i] = sum over r of weights[r] * sums[r][i], rounded once.
template <int Taps>
void VerticalSums(const double* const* sums, const double* weights, int count, float* out);

void ShiftBilinear(const PlaneRows& plane, const ShiftSegment& segment, double y, float* out);
void ShiftNearest(const PlaneRows& plane, const ShiftSegment& segment, double y, float* out);

}  // namespace qmr
