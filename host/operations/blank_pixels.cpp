#include "host/operations/blank_pixels.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

#include "host/night/frame.h"
#include "qmrimg/image/row_access.h"

namespace qmr {
namespace {

// About this many pixels of a plane stand for it.
constexpr double kSamples = 250000.0;

float PlaneMedian(const CVynImage& image, int plane) {
  const double pixels = static_cast<double>(image.GetWidth()) * image.GetHeight();
  const int step = std::max(1, static_cast<int>(std::sqrt(pixels / kSamples)));
  std::vector<float> good;
  // Every pixel is looked at when the spaced ones are all blank.
  for (const int every : {step, 1}) {
    for (int y = 0; y < image.GetHeight(); y += every) {
      const std::span<const float> row = ReadRow(image, y, plane, 0, image.GetWidth());
      for (std::size_t x = 0; x < row.size(); x += static_cast<std::size_t>(every))
        if (!std::isnan(row[x])) good.push_back(row[x]);
    }
    if (!good.empty()) break;
  }
  if (good.empty()) return 0.0f;
  const auto middle = good.begin() + static_cast<std::ptrdiff_t>(good.size() / 2);
  std::nth_element(good.begin(), middle, good.end());
  return *middle;
}

}  // namespace

BlankPixels::BlankPixels(CVynImage& image, int step) : planes_(image.GetPlanes()) {
  for (int p = 0; p < image.GetPlanes(); ++p) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      const std::span<const float> row = ReadRow(image, y, p, 0, image.GetWidth());
      for (std::size_t x = 0; x < row.size(); ++x)
        if (std::isnan(row[x])) pixels_.push_back({static_cast<int>(x), y, p});
    }
  }
  if (pixels_.empty()) return;
  std::vector<float> medians;
  for (int p = 0; p < image.GetPlanes(); ++p) medians.push_back(PlaneMedian(image, p));
  RepairBlankPixels(image, step);
  for (const Pixel& at : pixels_)
    if (std::isnan(image.GetPixelGrayRaw(at.x, at.y, at.plane)))
      image.SetPixelGrayRaw(at.x, at.y, medians[static_cast<std::size_t>(at.plane)], at.plane);
}

void BlankPixels::Restore(CVynImage& image) const {
  const bool every = image.GetPlanes() != planes_;
  for (const Pixel& at : pixels_)
    for (int p = every ? 0 : at.plane; p < (every ? image.GetPlanes() : at.plane + 1); ++p)
      image.SetPixelGrayRaw(at.x, at.y, std::numeric_limits<float>::quiet_NaN(), p);
}

}  // namespace qmr
