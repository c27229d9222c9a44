// Brightness of an image, row by row, with no copy of the whole.
#pragma once

#include <vector>

#include "qmrimg/image/vyn_image.h"

namespace qmr {

// Reads plane 0 of a monochrome image, 0.299 R + 0.587 G + 0.114 B of a colour one; raw scale. The image must stay
// as it is while this object lives. Reading is safe on several threads.
class Luminance {
 public:
  explicit Luminance(const CVynImage& image);
  // `planes` addresses of planes whose rows follow one another.
  Luminance(const float* const* planes, int planeCount, int width, int height);

  int Width() const { return width_; }
  int Height() const { return height_; }
  // The whole row: the image's own memory, or `buffer` (Width floats) filled.
  const float* Row(int y, float* buffer) const;
  // Columns x .. x + count - 1 of a row, which must lie inside.
  void Copy(int x, int y, int count, float* to) const;

 private:
  int width_;
  int height_;
  int planes_;
  std::vector<const float*> rows_;  // plane after plane
};

}  // namespace qmr
