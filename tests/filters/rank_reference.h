// Rank selection pixel by pixel, written for reading.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "tests/support/images.h"

namespace qmr::test {

inline bool NanLast(float a, float b) {
  return std::isnan(b) ? !std::isnan(a) : a < b;
}

// The pixels of the disc dx^2 + dy^2 <= square, dx and dy within reach, ascending. Cells outside the image are dropped,
// or mirrored (rows, with a period of twice the height) and clamped (columns).
inline std::vector<float> SortedDisc(const CVynImage& image, int plane, int x, int y, int reach, double square,
                                     bool drop) {
  const int width = image.GetWidth(), height = image.GetHeight();
  std::vector<float> values;
  for (int dy = -reach; dy <= reach; ++dy) {
    for (int dx = -reach; dx <= reach; ++dx) {
      if (!(dx * dx + dy * dy <= square)) continue;
      const bool inside = x + dx >= 0 && x + dx < width && y + dy >= 0 && y + dy < height;
      if (drop && !inside) continue;
      int row = std::abs(y + dy) % (2 * height);
      if (row >= height) row = std::min(std::abs(2 * height - 2 - row), height - 1);
      values.push_back(At(image, plane, std::clamp(x + dx, 0, width - 1), row));
    }
  }
  std::sort(values.begin(), values.end(), NanLast);
  return values;
}

}  // namespace qmr::test
