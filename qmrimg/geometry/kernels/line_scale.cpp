#include "qmrimg/geometry/kernels/line_scale.h"

namespace qmr {
namespace {

double To256(float v, double min, double range) {
  return (v - min) / range * 255.0;
}

}  // namespace

void ScaleLineFloat(float* line, int count, float min, float gain) {
#pragma omp simd
  for (int i = 0; i < count; ++i) line[i] = (line[i] - min) * gain;
}

void ScaleLineDouble(float* line, int count, double min, double range) {
#pragma omp simd
  for (int i = 0; i < count; ++i) line[i] = static_cast<float>(To256(line[i], min, range));
}

void BrightnessLine(const float* r, const float* g, const float* b, int count, float* out) {
#pragma omp simd
  for (int i = 0; i < count; ++i) out[i] = static_cast<float>(0.299 * r[i] + 0.587 * g[i] + 0.114 * b[i]);
}

void Brightness256Line(const float* r, const float* g, const float* b, int count, const LineLevels& levels,
                       float* out) {
  const LineLevels l = levels;
#pragma omp simd
  for (int i = 0; i < count; ++i) {
    out[i] = static_cast<float>(0.299 * To256(r[i], l.min[0], l.range[0]) + 0.587 * To256(g[i], l.min[1], l.range[1]) +
                                0.114 * To256(b[i], l.min[2], l.range[2]));
  }
}

void WidenLine(const float* line, int count, double* out) {
#pragma omp simd
  for (int i = 0; i < count; ++i) out[i] = static_cast<double>(line[i]);
}

}  // namespace qmr
