// The rows of an image for workers that look at many of them.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

#include "qmrimg/image/row_access.h"
#include "qmrimg/platform/exception.h"

namespace qmr {

// Addresses of column 0 of all rows of the planes that an image has pixels for. Without any pixels of floats width,
// height and planes are 0. The image must neither move nor change its shape meanwhile.
class RowTable {
 public:
  explicit RowTable(const CImage& image) {
    const int width = image.GetWidth();
    const int height = image.GetHeight();
    try {
      for (int p = 0; height > 0 && p < image.GetPlanes(); ++p) {
        for (int y = 0; y < height; ++y) {
          const float* const row = ReadRow(image, y, p, 0, width).data();
          if (!row) return;
          rows_.push_back(row);
        }
        width_ = width;
        height_ = height;
        planes_ = p + 1;
      }
    } catch (const std::bad_alloc&) {
      AfxThrowMemoryException();
    }
  }

  int Width() const { return width_; }
  int Height() const { return height_; }
  int Planes() const { return planes_; }
  const float* const* Plane(int plane) const {
    return rows_.data() + static_cast<std::size_t>(plane) * static_cast<std::size_t>(height_);
  }

 private:
  std::vector<const float*> rows_;
  int width_ = 0;
  int height_ = 0;
  int planes_ = 0;
};

}  // namespace qmr
