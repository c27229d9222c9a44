#include "qmrimg/image/kernels/level_rows.h"

#include "qmrimg/image/pixel_math.h"

namespace qmr {

void LimitRow(std::span<float> row, double low, double high) {
  float* const p = row.data();
  const std::size_t width = row.size();
  const float lowest = static_cast<float>(low);
  const float highest = static_cast<float>(high);
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float v = p[x];
    const float upper = static_cast<double>(v) > high ? highest : v;
    p[x] = static_cast<double>(v) < low ? lowest : upper;
  }
}

void LimitRow(std::span<float> row, float low, float high) {
  float* const p = row.data();
  const std::size_t width = row.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float raised = p[x] < low ? low : p[x];
    p[x] = raised > high ? high : raised;
  }
}

void To256Row(std::span<const float> src, float* dst, const RowLevels& levels) {
  const float* const from = src.data();
  const std::size_t width = src.size();
  const RowLevels l = levels;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) dst[x] = static_cast<float>(To256(from[x], l.min, l.range));
}

void RescaleRow(std::span<const float> src, std::span<float> dst, const RowLevels& from, const RowLevels& to) {
  const float* const in = src.data();
  float* const out = dst.data();
  const std::size_t width = src.size();
  const RowLevels f = from;
  const RowLevels t = to;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float value = static_cast<float>(To256(in[x], f.min, f.range));
    out[x] = static_cast<float>(ToRaw(value, t.min, t.range));
  }
}

void GrayRow(std::span<const float> r, std::span<const float> g, std::span<const float> b, std::span<float> dst,
             const RowLevels (&from)[3], const RowLevels& to) {
  const float* const red = r.data();
  const float* const green = g.data();
  const float* const blue = b.data();
  float* const out = dst.data();
  const std::size_t width = dst.size();
  const RowLevels l0 = from[0], l1 = from[1], l2 = from[2];
  const RowLevels t = to;
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float r256 = static_cast<float>(To256(red[x], l0.min, l0.range));
    const float g256 = static_cast<float>(To256(green[x], l1.min, l1.range));
    const float b256 = static_cast<float>(To256(blue[x], l2.min, l2.range));
    out[x] = static_cast<float>(ToRaw(BrightInPlaneOrder(r256, g256, b256), t.min, t.range));
  }
}

}  // namespace qmr
