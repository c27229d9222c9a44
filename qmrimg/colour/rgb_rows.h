// Lines of three planes for the operations on colour images.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>

#include "qmrimg/colour/kernels/colour_rows.h"
#include "qmrimg/image/row_access.h"

namespace qmr {

// Cuts rows to the width of the shortest: nothing where a plane is lacking.
template <class... Rows>
void CutToShortest(Rows&... rows) {
  std::size_t width = static_cast<std::size_t>(-1);
  const auto take = [&](const auto& set) {
    for (const auto& row : set) width = std::min(width, row.size());
  };
  (take(rows), ...);
  const auto cut = [&](auto& set) {
    for (auto& row : set) row = row.first(width);
  };
  (cut(rows), ...);
}

inline RgbSource ReadRgb(const CImage& image, int y, int left, int right) {
  return {ReadRow(image, y, 0, left, right), ReadRow(image, y, 1, left, right), ReadRow(image, y, 2, left, right)};
}

inline RgbResult WriteRgb(CImage& image, int y, int left, int right) {
  return {WriteRow(image, y, 0, left, right), WriteRow(image, y, 1, left, right), WriteRow(image, y, 2, left, right)};
}

}  // namespace qmr
