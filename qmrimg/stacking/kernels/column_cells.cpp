#include "qmrimg/stacking/kernels/column_cells.h"

#include <algorithm>
#include <cstddef>

#include "qmrimg/image/bilinear.h"
#include "qmrimg/image/kernels/transformed_row.h"

namespace qmr {

ColumnCells::ColumnCells(int first, int count, double shift, int size)
    : column_(static_cast<std::size_t>(count)),
      neighbour_(static_cast<std::size_t>(count)),
      fraction_(static_cast<std::size_t>(count)) {
  for (int i = 0; i < count; ++i) {
    const std::size_t at = static_cast<std::size_t>(i);
    const Cell cell = CellOf(first + i - shift, size);
    column_[at] = cell.first;
    neighbour_[at] = cell.second;
    fraction_[at] = cell.fraction;
    // Mostly all of them, but rounding may put two into one cell.
    if (run_ == i && cell.first == column_[0] + i && cell.second > cell.first) ++run_;
    if (exact_ == i && run_ > i && cell.fraction == 0.0) ++exact_;
  }
}

void ColumnCells::Sample(const float* row0, const float* row1, double fy, int begin, int end, float* out) const {
  const int run = std::clamp(run_, begin, end);
  int x = begin;
  if (fy == 0.0) {
    const int exact = std::clamp(exact_, begin, end);
    if (exact > begin) out = std::copy(row0 + column_[0] + begin, row0 + column_[0] + exact, out);
    x = exact;
  }
  if (x < run) {
    const int count = run - x;
    BilinearRun(row0 + column_[0] + x, row1 + column_[0] + x, fraction_.data() + x, fy, count, out);
    out += count;
    x = run;
  }
  for (; x < end; ++x) {
    const std::size_t at = static_cast<std::size_t>(x);
    const int c = column_[at];
    const int n = neighbour_[at];
    *out++ = Bilinear(row0[c], row0[n], row1[c], row1[n], fraction_[at], fy);
  }
}

}  // namespace qmr
