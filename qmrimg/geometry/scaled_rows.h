// Rows of a plane that is resampled to another size by a method of CInterp: the values of CInterp::Do.
#pragma once

#include <span>
#include <vector>

#include "qmrimg/geometry/kernels/placed_rows.h"

namespace qmr {

// One a worker and plane, for rows in ascending order: for windows it keeps the sums over the columns of the last few
// source rows, since neighbouring rows of the result share most of theirs.
class ScaledRows {
 public:
  // Both stay the caller's.
  ScaledRows(const PlacedColumns& columns, const PlaneRows& plane);
  // Samples at height y >= 0. Where a method refuses the position: 0.0.
  void Row(double y, std::span<float> out);

 private:
  template <class Taps>
  void Window(double y, float* out);
  const double* SumsOf(int row, int taps);

  const PlacedColumns& columns_;
  const PlaneRows& plane_;
  std::vector<double> sums_;
  std::vector<int> sumRows_;
};

}  // namespace qmr
