// The part of an image that a restoration works on, as plain arrays.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/store/block.h"

namespace qmr {

// The rectangle that is asked for: all of the image for null and for one that covers it. Nothing, for an image of
// other than float pixels and for a rectangle that leaves the image.
inline std::optional<CRect> RestoredRect(const CVynImage& image, const CRect* pRect) {
  const int width = image.GetWidth(), height = image.GetHeight();
  if (!HasFloats(image)) return std::nullopt;
  if (!pRect || (pRect->left <= 0 && pRect->top <= 0 && pRect->right >= width && pRect->bottom >= height))
    return CRect(0, 0, width, height);
  if (pRect->left < 0 || pRect->top < 0 || pRect->right > width || pRect->bottom > height) return std::nullopt;
  return *pRect;
}

// All planes of a rectangle that lies in the image, one after the other.
class PlaneBuffer {
 public:
  // Raises the memory exception.
  PlaneBuffer(const CVynImage& image, const CRect& rect)
      : rect_(rect),
        planes_(image.GetPlanes()),
        pixels_(static_cast<std::size_t>(rect_.Width()) * static_cast<std::size_t>(rect_.Height())),
        block_(static_cast<std::size_t>(planes_) * pixels_ * sizeof(float), Block::Content::kZero) {
    if (!block_.Get()) AfxThrowMemoryException();
  }

  float* Plane(int plane) const {
    return reinterpret_cast<float*>(block_.Get()) + static_cast<std::size_t>(plane) * pixels_;
  }
  void Load(const CVynImage& image) {
    EachRow([&](int p, int y, float* line) { std::ranges::copy(ReadRow(image, y, p, rect_.left, rect_.right), line); });
  }
  void Store(CVynImage& image) const {
    EachRow([&](int p, int y, const float* line) {
      const std::span<float> row = WriteRow(image, y, p, rect_.left, rect_.right);
      std::copy_n(line, row.size(), row.begin());
    });
  }

 private:
  template <class Work>
  void EachRow(Work&& work) const {
    for (int p = 0; p < planes_; ++p) {
      float* line = Plane(p);
      for (int y = rect_.top; y < rect_.bottom; ++y, line += rect_.Width()) work(p, y, line);
    }
  }

  CRect rect_;
  int planes_;
  std::size_t pixels_;
  Block block_;
};

}  // namespace qmr
