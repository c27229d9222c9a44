// Rows whose columns are sampled at given positions, ascending and the same for every row.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "qmrimg/geometry/kernels/window.h"

namespace qmr {

inline constexpr int kMostTaps = 6;

// What a method needs of each column. Positions above the source's width are left out by all methods but the nearest
// neighbour.
class PlacedColumns {
 public:
  // `method` is a method number of CInterp; `x[i]` >= 0.
  PlacedColumns(int method, int sourceWidth, const std::vector<double>& x);

  int Method() const { return method_; }
  // Columns that have a sample; they are the first ones.
  int Count() const { return count_; }

  // out[i] = sum over the window's columns of row[column] * weight, in column order; columns beyond the border repeat
  // the border pixel. For methods with a window of `Taps` columns.
  template <int Taps>
  void Sums(const float* row, double* out) const;
  // Samples at height y, 0 <= y <= height, by the methods without sums.
  void Bilinear(const PlaneRows& plane, double y, float* out) const;
  void Nearest(const PlaneRows& plane, double y, float* out) const;

 private:
  template <class Taps>
  void SetWindow();

  int method_;
  int sourceWidth_;
  int count_ = 0;
  int begin_ = 0;  // columns whose whole window exists
  int end_ = 0;
  std::vector<double> x_;
  std::vector<std::ptrdiff_t> first_;  // column of the window's first pixel
  std::vector<double> fraction_;
  std::array<std::vector<double>, kMostTaps> weights_;
};

}  // namespace qmr
