// What the geometric operations do alike: a new size, and rows that keep their pixels. A source that lacks rows,
// columns or planes leaves those of the result alone.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <span>

#include "qmrimg/geometry/kernels/move_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/messages.h"

namespace qmr {

// Unsets the reference points and makes room for the new size, all pixels 0. False, with nothing changed, for a size
// that is not positive; false, with the old size, when memory lacks.
inline bool MakeSize(CVynImage& image, int width, int height, int bProgress) {
  constexpr int kMessageSize = 6111;
  if (width <= 0 || height <= 0) return false;
  image.InitStdPtCtr();
  return image.ChangeSize(width, height, bProgress ? image.GetProgressHandle() : nullptr,
                          bProgress ? MessageText(kMessageSize) : nullptr) != 0;
}

// For bodies that make tables: what they lack is the memory exception.
template <class Body>
auto WithTables(const Body& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

// Work units of a report, limited to what a report can count.
inline int ReportUnits(std::int64_t rows, int planes) {
  return static_cast<int>(std::min<std::int64_t>(rows * planes, std::numeric_limits<int>::max()));
}

// Calls `row(plane, y)` for all rows of an image, plane by plane, a unit of its report each.
template <class Row>
void ForPlaneRows(CVynImage& image, const Row& row) {
  for (int p = 0; p < image.GetPlanes(); ++p)
    ForRows(
        0, image.GetHeight(), [&](int y) { row(p, y); }, &image);
}

// As much as both have.
inline void CopyRow(std::span<const float> from, std::span<float> to) {
  std::copy_n(from.begin(), std::min(from.size(), to.size()), to.begin());
}

// Row `y` becomes row `sourceRow` of the source.
inline void CopyRow(const CVynImage& source, int sourceRow, CVynImage& image, int plane, int y) {
  const int width = image.GetWidth();
  CopyRow(ReadRow(source, sourceRow, plane, 0, width), WriteRow(image, y, plane, 0, width));
}

// The same with left and right exchanged within the width of `image`.
inline void ReverseRow(const CVynImage& source, int sourceRow, CVynImage& image, int plane, int y) {
  const int width = image.GetWidth();
  const auto from = ReadRow(source, sourceRow, plane, 0, width);
  const auto to = WriteRow(image, y, plane, width - static_cast<int>(from.size()), width);
  if (from.size() == to.size()) ReverseRow(from, to);
}

}  // namespace qmr
