// Inversion of one row.
#pragma once

#include <span>

namespace qmr {

// Levels of one plane, raw scale, in float.
struct InvertLevels {
  float srcMin;
  float invSrcRange;
  float dstMin;
  float dstRange;
};

// A mirror in the 256-scale of the source, carried into the levels of the destination, all in float. The factor is
// the float 0.003921569, not a division by 255: results depend on it. Source and destination may be one row.
inline float InvertPixel(float v, const InvertLevels& levels) {
  return (255.0f - (v - levels.srcMin) * levels.invSrcRange * 255.0f) * 0.003921569f * levels.dstRange + levels.dstMin;
}

void InvertRow(std::span<const float> src, std::span<float> dst, const InvertLevels& levels);

// The same pixels with streaming stores, for planes larger than the cache. `column` is the column of the first
// pixel; groups of four start at columns divisible by 4, which lie on 16-byte boundaries.
void InvertRowStreaming(std::span<const float> src, std::span<float> dst, int column, const InvertLevels& levels);

}  // namespace qmr
