// Small things that the filters' many forms share.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "qmrimg/store/image.h"

namespace qmr {

// An image has three engines in a group.
inline constexpr int kEnginePlanes = 3;

// One value for all planes, as the array forms take it: one entry a plane of `image`, at least one.
template <class T>
std::vector<T> ForAllPlanes(const T& value, const CImage& image) {
  return std::vector<T>(static_cast<std::size_t>(std::max(image.GetPlanes(), 1)), value);
}

// Pixels of a row between two columns of a rectangle.
inline std::size_t ColumnsOf(int left, int right) {
  return static_cast<std::size_t>(std::max(right - left, 0));
}

}  // namespace qmr
