// Medians of the sites of undeveloped frames, from plane 0 of any image.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qmrimg/levels/honeycomb_sites.h"
#include "qmrimg/store/image.h"

namespace qmr {

// Frames and areas of more samples are measured by blocks.
inline constexpr std::int64_t kMedianSamples = 50000;

// Element count / 2 of the values in ascending order, not-a-number last; 0 of nothing.
template <class T>
double UpperMedian(std::vector<T>& values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  const auto numbers = std::partition(values.begin(), values.end(), [](T v) { return !std::isnan(v); });
  if (middle < numbers) std::nth_element(values.begin(), middle, numbers);
  return *middle;
}

// What CImgAutoLevel::GetMedianBayer and GetMedianHoneyComb give.
void MedianBayer(const CImage& image, float* result, int subsample);
void HoneycombGains(const CImage& image, double* result, int subsample);

// Whether the camera that the header names has a border around the picture (honeycomb_sites.h).
bool HasHoneycombBorder(const CImage& image);
// Where the cell of the gains begins: at the corner of the picture.
HoneycombSite HoneycombOrigin(const CImage& image);

}  // namespace qmr
