// Spans of rows for the operations. A source smaller than the rectangle counts as covering only what it has.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>

#include "qmrimg/store/image.h"

namespace qmr {

// True when rows hold floats: an image of another sample code has no rows for the operations.
inline bool HasFloats(const CImage& image) {
  return image.GetBitsPixel() == -32;
}

// Columns left..right - 1 of a row, cut to the image; empty when the image has no such row, plane or column.
inline std::span<const float> ReadRow(const CImage& image, int y, int plane, int left, int right) {
  const int end = std::min(right, image.GetWidth());
  const void* adr = end > left && HasFloats(image) ? image.GetImageAdr(left, y, plane, 1, 0, nullptr) : nullptr;
  return adr ? std::span<const float>(static_cast<const float*>(adr), static_cast<std::size_t>(end - left))
             : std::span<const float>();
}

inline std::span<float> WriteRow(CImage& image, int y, int plane, int left, int right) {
  const int end = std::min(right, image.GetWidth());
  void* adr = end > left && HasFloats(image) ? image.GetImageAdr(left, y, plane, 0, 0, nullptr) : nullptr;
  return adr ? std::span<float>(static_cast<float*>(adr), static_cast<std::size_t>(end - left)) : std::span<float>();
}

struct RowSpans {
  std::span<const float> from;
  std::span<float> to;
};

// A source row and a destination row of equal length, the shorter of what the two images have.
inline RowSpans RowPair(const CImage& src, CImage& dst, int y, int plane, int left, int right) {
  const std::span<const float> from = ReadRow(src, y, plane, left, right);
  const std::span<float> to = WriteRow(dst, y, plane, left, right);
  const std::size_t width = std::min(from.size(), to.size());
  return {from.first(width), to.first(width)};
}

}  // namespace qmr
