// Bilinear samples of whole rows of an image that is shifted but not turned: all rows share the places of the columns.
#pragma once

#include <vector>

namespace qmr {

class ColumnCells {
 public:
  ColumnCells() = default;
  // Columns first..first + count - 1 of the result lie at column - shift of a source that is `size` columns wide,
  // all of them below size. Needs memory: std::bad_alloc.
  ColumnCells(int first, int count, double shift, int size);

  int Count() const { return static_cast<int>(fraction_.size()); }

  // The samples of columns begin..end - 1, counted from `first`, to `out`, a distance `fy` below row0 towards row1.
  void Sample(const float* row0, const float* row1, double fy, int begin, int end, float* out) const;

 private:
  std::vector<int> column_;
  std::vector<int> neighbour_;
  std::vector<double> fraction_;
  // How many from the first one on lie one after the other, each with the next as its neighbour; and how many of those
  // exactly on a column.
  int run_ = 0;
  int exact_ = 0;
};

}  // namespace qmr
