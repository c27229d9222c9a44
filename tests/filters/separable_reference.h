// The separable convolution written plainly, with its edge rules spelled out.
#pragma once

#include <algorithm>
#include <vector>

#include "tests/support/images.h"

namespace qmr::test {

// The image rows met when walking down from row 0: 0 .. H-1, then H-1 .. 0, and so on. Walking up from row 0 meets
// the same rows, row 0 only once.
inline int WalkedRow(int y, int height) {
  std::vector<int> walk;
  for (int r = 0; r < height; ++r) walk.push_back(r);
  for (int r = height - 1; r >= 0; --r) walk.push_back(r);
  return walk[static_cast<std::size_t>(std::abs(y)) % walk.size()];
}

// Sums of type Sum over the taps in ascending order, each rounded to float.
template <class Sum = double>
std::vector<float> SeparableReference(const CVynImage& image, int plane, const std::vector<float>& kernel) {
  const int width = image.GetWidth(), height = image.GetHeight();
  const int size = static_cast<int>(kernel.size()), radius = size / 2;
  const std::vector<float> pixels = Pixels(image, plane);
  std::vector<float> along(pixels.size()), result(pixels.size());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      Sum sum = 0;
      for (int k = 0; k < size; ++k) {
        const int column = std::min(std::max(x + k - radius, 0), width - 1);
        sum += static_cast<Sum>(pixels[static_cast<std::size_t>(y * width + column)]) *
               static_cast<Sum>(kernel[static_cast<std::size_t>(k)]);
      }
      along[static_cast<std::size_t>(y * width + x)] = static_cast<float>(sum);
    }
  }
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      Sum sum = 0;
      for (int k = 0; k < size; ++k) {
        const int row = WalkedRow(y + k - radius, height);
        sum += static_cast<Sum>(along[static_cast<std::size_t>(row * width + x)]) *
               static_cast<Sum>(kernel[static_cast<std::size_t>(k)]);
      }
      result[static_cast<std::size_t>(y * width + x)] = static_cast<float>(sum);
    }
  }
  return result;
}

// The centre row of a kernel, divided by its float sum.
inline std::vector<float> CentreRow(const CFilterMatrix& matrix, bool normalize) {
  std::vector<float> kernel;
  float sum = 0.0f;
  for (int x = -matrix.GetRadius(); x <= matrix.GetRadius(); ++x) {
    kernel.push_back(matrix.Get(x, 0));
    sum += kernel.back();
  }
  if (normalize)
    for (float& v : kernel) v /= sum;
  return kernel;
}

}  // namespace qmr::test
