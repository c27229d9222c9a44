// The one plane of brightness that the stars of a frame are measured on.
#pragma once

#include <string>
#include <vector>

#include "host/night/frame.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// Which brightness of a colour frame counts.
enum class Brightness { kLuminance, kRed, kGreen, kBlue };

// Pixel (i, j) stands for the place scale * (i, j) + (scale - 1) / 2 of the file. Pixels without a value (which
// float's greatest one stands for, too) are filled by their surroundings and marked.
struct StarPlane {
  CVynImage image;  // one plane, raw scale
  int scale = 1;    // 2 where the frame is an undeveloped Bayer mosaic: means of its cells of 2 x 2 pixels
  std::string what;
  std::vector<bool> blank;  // empty where no pixel is

  int Width() const { return image.GetWidth(); }
  int Height() const { return image.GetHeight(); }
  const float* Row(int y) const { return static_cast<const float*>(image.GetImageAdr(0, y, 0, 1, 0, nullptr)); }
  bool IsBlank(int x, int y) const {
    return !blank.empty() &&
           blank[static_cast<std::size_t>(y) * static_cast<std::size_t>(Width()) + static_cast<std::size_t>(x)];
  }
  double ToFile(double v) const { return scale * v + (scale - 1) * 0.5; }
  double FromFile(double v) const { return (v - (scale - 1) * 0.5) / scale; }
};

// Takes the frame's pixels. A Failure for a plane that it lacks, a mosaic that is not known, and an image smaller than
// 16 pixels a side.
void MakeStarPlane(LightFrame& frame, Brightness brightness, StarPlane& plane);

}  // namespace qmr
