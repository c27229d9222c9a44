// What the point operations do alike: each pixel from the source's pixel at the same place.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/levels/kernels/point_rows.h"

namespace qmr {

// Work units of a report: one a row a plane, limited to what a report can count.
inline int RowUnits(int rows, int planes) {
  return static_cast<int>(
      std::min<std::int64_t>(static_cast<std::int64_t>(rows) * planes, std::numeric_limits<int>::max()));
}

// Where an operation writes: columns and rows clamped to the destination.
struct PointArea {
  int left, right, top, bottom;
};

inline PointArea AreaOf(const CVynImage& image, const CRect* rect) {
  PointArea area;
  image.NormalizeRect(rect, area.left, area.top, area.right, area.bottom);
  return area;
}

// Calls `row(from, to)` for each row of a plane, a unit of the report of `target` each: streaming stores go with all
// threads, plain ones with the calling thread alone.
template <class Row>
void ForPointRows(CVynImage& target, const CVynImage& source, int plane, const PointArea& area, Stores stores,
                  const Row& row) {
  const auto run = [&](int y) {
    const auto [from, to] = RowPair(source, target, y, plane, area.left, area.right);
    row(from, to);
  };
  if (stores == Stores::kStreaming)
    ForRows(area.top, area.bottom, run, &target);
  else
    ForRowsSerial(area.top, area.bottom, run, &target);
}

}  // namespace qmr
