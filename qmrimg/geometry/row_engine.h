// Whole rows of interpolated samples, the same values as one sample at a time.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "qmrimg/geometry/kernels/shift_rows.h"
#include "qmrimg/geometry/kernels/window.h"

namespace qmr {

// Columns of a shifted row. Either positions start, start + 1.0, ... rounded one after the other (`column` unused),
// or column + i + start, each rounded once.
struct ShiftedColumns {
  bool accumulate;
  double start;
  int column;
  int count;
};

// Positions of a turned row: start point and step a column, x += stepX, y -= stepY.
struct TurnedColumns {
  double x;
  double y;
  double stepX;
  double stepY;
  int count;
};

// One engine a worker. For shifted rows it keeps the sums over the columns of the last few source rows, since the
// next row of the result needs all but one of them again: the source must not change between Reset and the last row.
class RowEngine {
 public:
  void Reset();

  // `count` samples at height y, 0 <= y <= height. `method` is a method number of CInterp; an unknown one gives 0.0.
  // `planeIndex` tells planes apart in the cache.
  void Shifted(int method, const PlaneRows& plane, int planeIndex, const ShiftedColumns& columns, double y, float* out);

  // Makes the positions of a turned row and finds those with 0 <= x and 0 <= y that lie below the two limits, or on
  // them when `closed`; being monotonic on both axes they are one run, begin..end - 1.
  void PlanTurned(const TurnedColumns& columns, int limitX, int limitY, bool closed, int* begin, int* end);
  // Samples positions begin..end - 1 of the planned row on all planes; out[p][0] is the sample of `begin`.
  void Turned(int method, const PlaneRows* planes, int planeCount, int begin, int end, float* const* out) const;

  // A scratch row of at least `count` floats; `index` 0..2 tells rows apart.
  float* Scratch(int index, int count);

 private:
  static constexpr int kMaxTaps = 6;

  template <class Taps>
  void ShiftedWindow(const PlaneRows& plane, int planeIndex, double y, float* out);
  template <class Taps>
  const double* SumsOf(const PlaneRows& plane, int planeIndex, int row);
  void SetColumns(int method, const ShiftedColumns& columns);

  int method_ = -1;
  ShiftedColumns columns_ = {false, 0.0, 0, 0};
  ShiftSegments segments_;
  std::vector<std::array<double, kMaxTaps>> weights_;  // one a segment
  std::vector<double> sums_;                           // kMaxTaps rows a plane
  std::vector<int> sumRows_;                           // the source row that each of them belongs to, -1 for none
  std::vector<double> turnedX_;
  std::vector<double> turnedY_;
  std::array<std::vector<float>, 3> scratch_;
};

}  // namespace qmr
