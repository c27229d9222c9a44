// The formulas of the pixel model, each defined once. For the library's own sources only: a caller's compiler flags
// must never take part in these results.
#pragma once

#include <bit>
#include <cstdint>

#include "qmrimg/store/image.h"

namespace qmr {

// The two scales. A range of 0 divides by zero as it stands.
inline double To256(double v, double min, double range) {
  return (v - min) / range * 255.0;
}
inline double ToRaw(double v, double min, double range) {
  return v / 255.0 * range + min;
}

// Brightness of a colour pixel in the order of addition that most readers use.
inline double Bright(double r, double g, double b) {
  return g * 0.587 + r * 0.299 + b * 0.114;
}

// The same weights added in the order of the planes, as statistics and conversions to gray do.
inline double BrightInPlaneOrder(double r, double g, double b) {
  return 0.299 * r + 0.587 * g + 0.114 * b;
}

// True when brightness can be formed: an image of two planes counts as colour but has no blue, and the plane count may
// run ahead of the pixels.
inline bool HasRgb(const CImage& image) {
  const CVmImage* const store = image.GetVmImage();
  return image.IsColor() && image.GetPlanes() >= 3 && (!store || store->GetPlanes() >= 3);
}

// Rounds a value of about 0..255 to the nearest integer, ties to even, in the low byte: above 2^23 a float's last bit
// counts ones, so the addition rounds. Not-a-number and infinities give 0; no conversion instruction is needed, so
// that loops over it vectorise on every processor.
inline constexpr float kRounder = 12582912.0f;
inline std::uint32_t RoundToBits(float v) {
  return std::bit_cast<std::uint32_t>(v + kRounder);
}
inline std::uint32_t RoundToByte(float v) {
  return RoundToBits(v) & 0xFFu;
}

// All ones or all zeros.
inline std::uint32_t MaskOf(bool condition) {
  return 0u - static_cast<std::uint32_t>(condition);
}

// Levels of a plane for display, raw scale. In float for painting, in double for bitmap blocks.
struct DisplayLevels {
  float min;
  float max;
  float k;  // 255 / range
};
struct BlockLevels {
  double min;
  double max;
  double range;
};

inline DisplayLevels DisplayLevelsOf(const CImage& image, int plane) {
  return {static_cast<float>(image.GetLevelMin(plane)), static_cast<float>(image.GetLevelMax(plane)),
          static_cast<float>(255.0 / image.GetLevelRange(plane))};
}
inline BlockLevels BlockLevelsOf(const CImage& image, int plane) {
  return {image.GetLevelMin(plane), image.GetLevelMax(plane), image.GetLevelRange(plane)};
}

// The level mapping: 0 at or below the minimum (and for not-a-number), 255 at or above the maximum.
inline std::uint32_t ToByte(float v, const DisplayLevels& levels) {
  const std::uint32_t inside = RoundToBits((v - levels.min) * levels.k);
  return (inside | MaskOf(v >= levels.max)) & MaskOf(v > levels.min) & 0xFFu;
}
inline std::uint32_t ToByte(float v, const BlockLevels& levels) {
  const double value = v;
  const std::uint32_t inside = RoundToBits(static_cast<float>(To256(value, levels.min, levels.range)));
  return (inside | MaskOf(value >= levels.max)) & MaskOf(value > levels.min) & 0xFFu;
}

}  // namespace qmr
