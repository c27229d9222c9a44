#include "qmrimg/restoration/kernels/wiener_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "qmrimg/image/pixel_math.h"

namespace qmr {

int MirrorIndex(int at, int length) {
  const std::int64_t period = std::int64_t{2} * length;
  const std::int64_t place = (at % period + period) % period;
  return static_cast<int>(place < length ? place : period - 1 - place);
}

void LoadMirroredRow(std::span<const float> src, const RowLevels& levels, float* row, int width) {
  const int length = static_cast<int>(src.size()), inside = std::min(length, width);
  if (length == 0) {
    std::fill_n(row, 2 * static_cast<std::size_t>(width), 0.0f);
    return;
  }
  const float* const in = src.data();
  const double min = levels.min, range = levels.range;
#pragma omp simd
  for (int x = 0; x < inside; ++x) {
    row[2 * x] = static_cast<float>(To256(in[x], min, range));
    row[2 * x + 1] = 0.0f;
  }
  for (int x = inside; x < width; ++x) {
    row[2 * x] = row[2 * MirrorIndex(x, length)];
    row[2 * x + 1] = 0.0f;
  }
}

void StoreRealRow(const float* row, const RowLevels& levels, std::span<float> dst) {
  const int width = static_cast<int>(dst.size());
  float* const out = dst.data();
  const double min = levels.min, range = levels.range;
#pragma omp simd
  for (int x = 0; x < width; ++x) out[x] = static_cast<float>(ToRaw(row[2 * x], min, range));
}

void CosineWeights(double dy, double radius, int count, double* weights) {
  for (int d = 0; d < count; ++d) {
    const double dx = d, r = std::sqrt(dx * dx + dy * dy);
    weights[d] = r < radius ? std::cos(r * 3.141592653589793 / radius) * 0.5 + 0.5 : 0.0;
  }
}

void WeighRow(std::span<const float> src, const double* weights, int centre, std::span<float> dst) {
  const int width = static_cast<int>(std::min(src.size(), dst.size())), left = std::min(centre, width);
  const float* const in = src.data();
  float* const out = dst.data();
#pragma omp simd
  for (int x = 0; x < left; ++x) out[x] = static_cast<float>(in[x] * weights[centre - x]);
#pragma omp simd
  for (int x = left; x < width; ++x) out[x] = static_cast<float>(in[x] * weights[x - centre]);
}

}  // namespace qmr
