#include "qmrimg/filters/kernels/work_rows.h"

#include <cstddef>
#include <cstdint>

#include "qmrimg/filters/kernels/pattern_rows.h"
#include "qmrimg/image/pixel_math.h"

namespace qmr {

void MirrorSides(std::span<float> row, int from, int width) {
  if (width < 1) return;
  const std::int64_t length = static_cast<std::int64_t>(row.size());
  const auto mirror = [&](std::int64_t x) {
    row[static_cast<std::size_t>(x)] = row[static_cast<std::size_t>(from + MirrorIndex(x - from, width))];
  };
  for (std::int64_t x = 0; x < from; ++x) mirror(x);
  for (std::int64_t x = static_cast<std::int64_t>(from) + width; x < length; ++x) mirror(x);
}

void MeanBrightnessRow(std::span<const float> r, std::span<const float> g, std::span<const float> b,
                       std::span<float> to, const WorkLevels& levels) {
  const float* const red = r.data();
  const float* const green = g.data();
  const float* const blue = b.data();
  float* const out = to.data();
  const auto [min, range] = levels;
  const double lowest = min;
  const double span = range;
  const std::size_t count = to.size();
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    const float r256 = static_cast<float>(To256(red[i], lowest, span));
    const float g256 = static_cast<float>(To256(green[i], lowest, span));
    const float b256 = static_cast<float>(To256(blue[i], lowest, span));
    const float sum = g256 + r256 + b256;
    out[i] = static_cast<float>(static_cast<double>(sum) / 3.0 / 255.0 * span + lowest);
  }
}

}  // namespace qmr
