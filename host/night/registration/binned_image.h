// Small copies of a frame, cleaned of what would correlate without being sky.
#pragma once

#include <cstddef>
#include <vector>

#include "host/night/registration/luminance.h"

namespace qmr {

// A binned plane. Pixel (i, j) stands for the block whose middle lies at `bin` * (i, j) + (bin - 1) / 2 of the frame;
// a part block at the right or bottom edge is left out.
struct BinnedImage {
  int width = 0;
  int height = 0;
  int bin = 1;
  std::vector<float> pixels;

  float* Row(int y) { return pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width); }
  const float* Row(int y) const {
    return pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
  }
};

// Block means of pixels that were cut to the range of their eight neighbours first, so that lone hot and cold pixels
// and most cosmic rays go. Pixels that are no finite number are left out; a block of nothing else is not-a-number.
BinnedImage Bin(const Luminance& image, int bin);

// Means of 2 x 2 pixels.
BinnedImage HalfSize(const BinnedImage& image);

// What correlation is to see: the local mean is taken away (sky gradients, glow, nebulosity), the rest is divided by
// its noise and compressed, so that no single star outweighs the field, and means of rows and columns are taken away
// (readout stripes). Not-a-number becomes 0. An image without any contrast gets all pixels 0.
void CleanForCorrelation(BinnedImage& image);

// Three rows in, the middle one out, each pixel cut to the range of its eight neighbours. `scratch` has 4 * width.
void DespikeRow(const float* above, const float* row, const float* below, int width, float* scratch, float* out);

}  // namespace qmr
