#include "qmrimg/raw/kernels/dark_rows.h"

#include <cstddef>

namespace qmr {
namespace {

// a[x] = blend(a[x], b[x]), in double.
template <class Blend>
inline void BlendRows(std::span<float> first, std::span<const float> second, const Blend blend) {
  float* const a = first.data();
  const float* const b = second.data();
  const std::size_t width = first.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) a[x] = static_cast<float>(blend(double{a[x]}, double{b[x]}));
}

}  // namespace

void BlendByProportionRow(std::span<float> first, std::span<const float> second, double r1, double r2) {
  BlendRows(first, second, [=](double d1, double d2) { return (d2 - d1) * r1 + d1 + (d2 - d1) * r2; });
}

void BlendByPowerRow(std::span<float> first, std::span<const float> second, double r, double power) {
  BlendRows(first, second, [=](double d1, double d2) { return (d2 - d1) * r + d1 + d1 * power; });
}

void BlendByScoreRow(std::span<float> first, std::span<const float> second, double r) {
  BlendRows(first, second, [=](double d1, double d2) {
    const double m = (d2 - d1) * r + d1;
    const double raised = d1 > m ? d1 : m;
    return m > d2 ? d2 : raised;
  });
}

}  // namespace qmr
