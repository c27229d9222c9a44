#include "host/night/registration/luminance.h"

#include <algorithm>
#include <cstddef>

namespace qmr {

Luminance::Luminance(const CVynImage& image)
    : width_(image.GetWidth()), height_(image.GetHeight()), planes_(image.GetPlanes() >= 3 ? 3 : 1) {
  rows_.reserve(static_cast<std::size_t>(planes_) * static_cast<std::size_t>(std::max(0, height_)));
  for (int plane = 0; plane < planes_; ++plane) {
    for (int y = 0; y < height_; ++y) {
      const auto* row = static_cast<const float*>(image.GetImageAdr(0, y, plane, 1, 0, nullptr));
      if (!row) {
        width_ = height_ = 0;
        rows_.clear();
        return;
      }
      rows_.push_back(row);
    }
  }
}

Luminance::Luminance(const float* const* planes, int planeCount, int width, int height)
    : width_(width), height_(height), planes_(planeCount >= 3 ? 3 : 1) {
  for (int plane = 0; plane < planes_; ++plane) {
    for (int y = 0; y < height; ++y) {
      rows_.push_back(planes[plane] + static_cast<std::size_t>(y) * static_cast<std::size_t>(width));
    }
  }
}

const float* Luminance::Row(int y, float* buffer) const {
  if (planes_ == 1) return rows_[static_cast<std::size_t>(y)];
  Copy(0, y, width_, buffer);
  return buffer;
}

void Luminance::Copy(int x, int y, int count, float* to) const {
  const auto row = static_cast<std::size_t>(y), height = static_cast<std::size_t>(height_);
  const float* r = rows_[row] + x;
  if (planes_ == 1) {
    std::copy(r, r + count, to);
    return;
  }
  const float* g = rows_[height + row] + x;
  const float* b = rows_[2 * height + row] + x;
#pragma omp simd
  for (int i = 0; i < count; ++i) to[i] = 0.299f * r[i] + 0.587f * g[i] + 0.114f * b[i];
}

}  // namespace qmr
