#include "qmrimg/colour/kernels/lab_rows.h"

#include <algorithm>
#include <cstring>

#include "qmrimg/colour/kernels/lab_math.h"

namespace qmr {
namespace {

// Pixels that a row is worked on at a time.
constexpr std::size_t kBlock = 256;

struct LabBlock {
  float l[kBlock];
  float a[kBlock];
  float b[kBlock];
};

// Literal comparisons: not-a-number stays.
float Limit(float v, float high) {
  const float raised = v < 0.0f ? 0.0f : v;
  return raised > high ? high : raised;
}

QMR_EACH_PIXEL Lab LabOf(float r, float g, float b) {
  return XyzToLab(LinearToXyz(Linear({r / 255.0, g / 255.0, b / 255.0})));
}

// Runs `convert(first, count, block)` and copies what is wanted, block by block.
template <class Convert>
void InBlocks(std::size_t width, const LabResult& dst, const Convert& convert) {
  LabBlock block;
  for (std::size_t at = 0; at < width; at += kBlock) {
    const std::size_t count = std::min(kBlock, width - at);
    convert(at, count, block);
    const auto store = [at, count](std::span<float> to, const float* from) {
      if (!to.empty()) std::memcpy(to.data() + at, from, count * sizeof(float));
    };
    store(dst.l, block.l);
    store(dst.a, block.a);
    store(dst.b, block.b);
  }
}

}  // namespace

void LabRow(const RgbSource& src, const LabResult& dst, const LabLevels& levels) {
  const LabLevels l = levels;
  InBlocks(src[0].size(), dst, [&](std::size_t at, std::size_t count, LabBlock& block) {
    const float* const s0 = src[0].data() + at;
    const float* const s1 = src[1].data() + at;
    const float* const s2 = src[2].data() + at;
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) {
      const float r = Limit((s0[x] - l.min[0]) * l.k[0], l.high);
      const float g = Limit((s1[x] - l.min[1]) * l.k[1], l.high);
      const float b = Limit((s2[x] - l.min[2]) * l.k[2], l.high);
      const Lab lab = LabOf(r, g, b);
      block.l[x] = static_cast<float>(lab.l);
      block.a[x] = static_cast<float>(lab.a);
      block.b[x] = static_cast<float>(lab.b);
    }
  });
}

void LabRow(std::span<const float> src, const LabResult& dst, const RowLevels& levels, float high) {
  InBlocks(src.size(), dst, [&](std::size_t at, std::size_t count, LabBlock& block) {
    float value[kBlock];
    To256Row(src.subspan(at, count), value, levels);
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) {
      const float v = Limit(value[x], high);
      const Lab lab = LabOf(v, v, v);
      block.l[x] = static_cast<float>(lab.l);
      block.a[x] = static_cast<float>(lab.a);
      block.b[x] = static_cast<float>(lab.b);
    }
  });
}

void EnhanceRow(const RgbSource& lab, const RgbResult& dst, const Enhancement& enhancement) {
  const double aPlus = enhancement.aPlus, aMinus = enhancement.aMinus;
  const double bPlus = enhancement.bPlus, bMinus = enhancement.bMinus;
  const RowLevels l0 = enhancement.levels[0], l1 = enhancement.levels[1], l2 = enhancement.levels[2];
  const float* const s0 = lab[0].data();
  const float* const s1 = lab[1].data();
  const float* const s2 = lab[2].data();
  float* const d0 = dst[0].data();
  float* const d1 = dst[1].data();
  float* const d2 = dst[2].data();
  const std::size_t width = lab[0].size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const double a = s1[x];
    const double b = s2[x];
    const double aGain = a >= 0.0 ? aPlus : aMinus;
    const double bGain = b >= 0.0 ? bPlus : bMinus;
    const Rgb rgb = XyzToRgb(LabToXyz({s0[x], a * aGain, b * bGain}));
    d0[x] = static_cast<float>(rgb.r * l0.range + l0.min);
    d1[x] = static_cast<float>(rgb.g * l1.range + l1.min);
    d2[x] = static_cast<float>(rgb.b * l2.range + l2.min);
  }
}

}  // namespace qmr
