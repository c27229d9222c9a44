#include "qmrimg/raw/kernels/dark_rows.h"

#include <cstddef>

namespace qmr {

void BlendByProportionRow(std::span<float> first, std::span<const float> second, double r1, double r2) {
  float* const a = first.data();
  const float* const b = second.data();
  const std::size_t width = first.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const double d1 = a[x];
    const double d2 = b[x];
    a[x] = static_cast<float>((d2 - d1) * r1 + d1 + (d2 - d1) * r2);
  }
}

void BlendByPowerRow(std::span<float> first, std::span<const float> second, double r, double power) {
  float* const a = first.data();
  const float* const b = second.data();
  const std::size_t width = first.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const double d1 = a[x];
    const double d2 = b[x];
    a[x] = static_cast<float>((d2 - d1) * r + d1 + d1 * power);
  }
}

void BlendByScoreRow(std::span<float> first, std::span<const float> second, double r) {
  float* const a = first.data();
  const float* const b = second.data();
  const std::size_t width = first.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const double d1 = a[x];
    const double d2 = b[x];
    const double m = (d2 - d1) * r + d1;
    const double raised = d1 > m ? d1 : m;
    a[x] = static_cast<float>(m > d2 ? d2 : raised);
  }
}

}  // namespace qmr
