// Development of mosaics, from Bayer and honeycomb sensors alike.
#pragma once

#include <memory>
#include <vector>

#include "host/files/mosaic.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// Columns and rows that a development cuts off.
struct DevelopMargins {
  int left = 0, top = 0, right = 0, bottom = 0;
};

// The fewest with which the whole result is developed. Those at the left and at the top do not depend on the size.
DevelopMargins LeastMargins(const MosaicLayout& mosaic, int width, int height);

// All that a development can be told; plain and linear as it stands.
struct Development {
  DevelopMargins margins;
  // 12 or 14 (Bayer only): samples of so many bits become 0 to 65535. 0: values stay what they are.
  int bits = 0;
  bool mono = false;
  int interpolation = 3;  // honeycomb only: 2 along rows, 1 along columns, 3 the mean of both
  bool autoRange = false;
  std::vector<double> gains;  // 4 or 8 of the sites of a cell; empty: none
  bool knee = false;
  double gamma = 0.0;  // 0: none
  bool clip = false;
  float black = 0.0f;  // subtracted first
};

// The developed image; null where the size and the margins leave nothing, or memory lacks. Levels of plane 0 are the
// range where the bits are 0. `progress` may be null.
std::unique_ptr<CVynImage> DevelopMosaic(std::unique_ptr<CVynImage> mosaic, const MosaicLayout& layout,
                                         const Development& development, HWND progress = nullptr);

// Gives the pixels of a honeycomb that have no photosite a value; does nothing to other frames.
void FillEmptySites(CVynImage& image, const MosaicLayout& layout, float value);

}  // namespace qmr
