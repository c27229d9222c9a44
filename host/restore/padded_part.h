// A part of a picture, made ready for transforms that take its right edge to meet its left one.
#pragma once

#include <cstddef>
#include <vector>

#include "qmrimg/image/vyn_image.h"

namespace qmr {

// The pixels of a rectangle in the upper left of a larger array. Behind them the array goes on with their mirror, which
// fades into the mirror of the other edge: nothing of one edge leaks to the other, and no step is left.
class PaddedPart {
 public:
  // `part` lies in the image; `width` and `height` are not below its sides. `offset` is taken off every value, which is
  // multiplied by `scale` then.
  PaddedPart(const CVynImage& image, int plane, const CRect& part, int width, int height, double offset,
             double scale = 1.0);

  int Width() const { return width_; }
  int Height() const { return height_; }
  float* Data() { return data_.data(); }
  float& At(int x, int y) {
    return data_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)];
  }

 private:
  int width_, height_;
  std::vector<float> data_;
};

// The least number from `n` on that has no prime factor above 5, and the least power of two.
int SmoothSize(int n);
int PowerOfTwo(int n);

}  // namespace qmr
