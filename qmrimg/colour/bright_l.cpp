// Brightness by lightness.
#include <algorithm>

#include "qmrimg/colour/color.h"
#include "qmrimg/image/vyn_image.h"

namespace {

constexpr double kLimit = 5000.0;

}  // namespace

double CVynImage::CalcBrightL(double r, double g, double b) {
  const auto channel = [](double v) { return std::clamp(v, -kLimit, kLimit) / 255.0; };
  CColor colour;
  colour.RgbToLab(channel(r), channel(g), channel(b));
  const double lightness = colour.GetL();
  colour.LabToRgb(lightness, 0.0, 0.0);
  return colour.GetR() * 255.0;
}
