#include "qmrimg/image/kernels/invert_rows.h"

#include <cstddef>

#include "qmrimg/image/kernels/streaming.h"

namespace qmr {

void InvertRow(std::span<const float> src, std::span<float> dst, const InvertLevels& levels) {
  const float* const from = src.data();
  float* const to = dst.data();
  const std::size_t width = src.size();
  const InvertLevels l = levels;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) to[x] = InvertPixel(from[x], l);
}

void InvertRowStreaming(std::span<const float> src, std::span<float> dst, int column, const InvertLevels& levels) {
  const InvertLevels l = levels;
  StreamRow(src, dst, column, [l](auto v) {
    using Vector = decltype(v);
    return (Splat<Vector>(255.0f) -
            (v - Splat<Vector>(l.srcMin)) * Splat<Vector>(l.invSrcRange) * Splat<Vector>(255.0f)) *
               Splat<Vector>(0.003921569f) * Splat<Vector>(l.dstRange) +
           Splat<Vector>(l.dstMin);
  });
}

}  // namespace qmr
