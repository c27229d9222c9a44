#include "qmrimg/raw/kernels/honeycomb_rows.h"

namespace qmr {
namespace {

// In float: between doubles GCC 12 leaves out the rounding of a and b in vectorised loops at -O2.
inline float Mean(float a, float b) {
  return (a + b) * 0.5f;
}

inline float Filled(float nearest, float first, float second) {
  return static_cast<float>((static_cast<double>(first) + second) * 0.25 + nearest * 0.5);
}

// Luminance is 0.3 red + 0.59 green + 0.11 blue; pairs share the weight of their colour.
inline float LuminanceOfGap(double g0, double g1, double red, double blue) {
  return static_cast<float>((g0 + g1) * 0.295 + 0.3 * red + 0.11 * blue);
}
inline float LuminanceOfRed(double g0, double g1, double red, double b0, double b1) {
  return static_cast<float>((g0 + g1) * 0.295 + 0.3 * red + (b0 + b1) * 0.055);
}
inline float LuminanceOfBlue(double g0, double g1, double r0, double r1, double blue) {
  return static_cast<float>((g0 + g1) * 0.295 + (r0 + r1) * 0.15 + 0.11 * blue);
}
inline float LuminanceOfGreen(double r0, double r1, double green, double b0, double b1) {
  return static_cast<float>((r0 + r1) * 0.15 + 0.59 * green + (b0 + b1) * 0.055);
}

struct Developed {
  float luminance, red, blue;
};

template <HoneycombPairs kPairs, class Kernel>
inline Developed Combined(Kernel kernel) {
  if constexpr (kPairs == HoneycombPairs::kRows) return kernel(0);
  if constexpr (kPairs == HoneycombPairs::kColumns) return kernel(1);
  const Developed a = kernel(0);
  const Developed b = kernel(1);
  return {Mean(a.luminance, b.luminance), Mean(a.red, b.red), Mean(a.blue, b.blue)};
}

template <bool kColour, class Site>
inline void Store(const HoneycombQuarter& out, std::size_t count, Site site) {
  float* const luminance = out.luminance - 1;
  double* const red = kColour ? out.red - 1 : nullptr;
  double* const blue = kColour ? out.blue - 1 : nullptr;
  const std::size_t n = count + 2;
#pragma omp simd
  for (std::size_t k = 0; k < n; ++k) {
    const Developed d = site(k);
    luminance[k] = d.luminance;
    if constexpr (kColour) {
      red[k] = static_cast<double>(d.red) - d.luminance;
      blue[k] = static_cast<double>(d.blue) - d.luminance;
    }
  }
}

template <class Site>
inline void StoreAll(const HoneycombQuarter& out, std::size_t count, Site site) {
  out.red ? Store<true>(out, count, site) : Store<false>(out, count, site);
}

template <HoneycombPairs kPairs>
void Gaps(const std::array<GapTaps, 2>& taps, const HoneycombPair& green, const HoneycombQuarter& out,
          std::size_t count) {
  const float* const g0 = green[0] - 1;
  const float* const g1 = green[1] - 1;
  // Pointers of their own keep the loop vectorised.
  const float* const r0n = taps[0].red.nearest - 1;
  const float* const r0a = taps[0].red.first - 1;
  const float* const r0b = taps[0].red.second - 1;
  const float* const b0n = taps[0].blue.nearest - 1;
  const float* const b0a = taps[0].blue.first - 1;
  const float* const b0b = taps[0].blue.second - 1;
  const float* const r1n = taps[1].red.nearest - 1;
  const float* const r1a = taps[1].red.first - 1;
  const float* const r1b = taps[1].red.second - 1;
  const float* const b1n = taps[1].blue.nearest - 1;
  const float* const b1a = taps[1].blue.first - 1;
  const float* const b1b = taps[1].blue.second - 1;
  StoreAll(out, count, [=](std::size_t k) {
    return Combined<kPairs>([=](int kernel) {
      const float red = kernel ? Filled(r1n[k], r1a[k], r1b[k]) : Filled(r0n[k], r0a[k], r0b[k]);
      const float blue = kernel ? Filled(b1n[k], b1a[k], b1b[k]) : Filled(b0n[k], b0a[k], b0b[k]);
      return Developed{LuminanceOfGap(g0[k], g1[k], red, blue), red, blue};
    });
  });
}

template <HoneycombPairs kPairs, bool kRed>
void ColourSites(const float* own, const std::array<ColourTaps, 2>& taps, const HoneycombQuarter& out,
                 std::size_t count) {
  const float* const o = own - 1;
  const float* const g00 = taps[0].green[0] - 1;
  const float* const g01 = taps[0].green[1] - 1;
  const float* const c00 = taps[0].other[0] - 1;
  const float* const c01 = taps[0].other[1] - 1;
  const float* const g10 = taps[1].green[0] - 1;
  const float* const g11 = taps[1].green[1] - 1;
  const float* const c10 = taps[1].other[0] - 1;
  const float* const c11 = taps[1].other[1] - 1;
  StoreAll(out, count, [=](std::size_t k) {
    return Combined<kPairs>([=](int kernel) {
      const float ga = kernel ? g10[k] : g00[k];
      const float gb = kernel ? g11[k] : g01[k];
      const float ca = kernel ? c10[k] : c00[k];
      const float cb = kernel ? c11[k] : c01[k];
      if constexpr (kRed) return Developed{LuminanceOfRed(ga, gb, o[k], ca, cb), o[k], Mean(ca, cb)};
      return Developed{LuminanceOfBlue(ga, gb, ca, cb, o[k]), Mean(ca, cb), o[k]};
    });
  });
}

}  // namespace

void DevelopGaps(const std::array<GapTaps, 2>& taps, const HoneycombPair& green, HoneycombPairs pairs,
                 const HoneycombQuarter& out, std::size_t count) {
  switch (pairs) {
    case HoneycombPairs::kRows:
      return Gaps<HoneycombPairs::kRows>(taps, green, out, count);
    case HoneycombPairs::kColumns:
      return Gaps<HoneycombPairs::kColumns>(taps, green, out, count);
    case HoneycombPairs::kBoth:
      return Gaps<HoneycombPairs::kBoth>(taps, green, out, count);
  }
}

template <bool kRed>
static void ColourSitesBy(const float* own, const std::array<ColourTaps, 2>& taps, HoneycombPairs pairs,
                          const HoneycombQuarter& out, std::size_t count) {
  switch (pairs) {
    case HoneycombPairs::kRows:
      return ColourSites<HoneycombPairs::kRows, kRed>(own, taps, out, count);
    case HoneycombPairs::kColumns:
      return ColourSites<HoneycombPairs::kColumns, kRed>(own, taps, out, count);
    case HoneycombPairs::kBoth:
      return ColourSites<HoneycombPairs::kBoth, kRed>(own, taps, out, count);
  }
}

void DevelopColourSites(const float* own, bool isRed, const std::array<ColourTaps, 2>& taps, HoneycombPairs pairs,
                        const HoneycombQuarter& out, std::size_t count) {
  isRed ? ColourSitesBy<true>(own, taps, pairs, out, count) : ColourSitesBy<false>(own, taps, pairs, out, count);
}

void DevelopGreenSites(const float* own, const HoneycombPair& red, const HoneycombPair& blue,
                       const HoneycombQuarter& out, std::size_t count) {
  const float* const o = own - 1;
  const float* const r0 = red[0] - 1;
  const float* const r1 = red[1] - 1;
  const float* const b0 = blue[0] - 1;
  const float* const b1 = blue[1] - 1;
  StoreAll(out, count, [=](std::size_t k) {
    return Developed{LuminanceOfGreen(r0[k], r1[k], o[k], b0[k], b1[k]), Mean(r0[k], r1[k]), Mean(b0[k], b1[k])};
  });
}

void SynthesizeQuarter(const HoneycombBox& red, const HoneycombBox& blue, const float* luminance,
                       const std::array<float*, 3>& out, std::size_t count) {
  const auto add = [count, luminance](const HoneycombBox& box, float* to) {
    const double* const a0 = box[0][0];
    const double* const a1 = box[0][1];
    const double* const a2 = box[0][2];
    const double* const b0 = box[1][0];
    const double* const b1 = box[1][1];
    const double* const b2 = box[1][2];
    const double* const c0 = box[2][0];
    const double* const c1 = box[2][1];
    const double* const c2 = box[2][2];
#pragma omp simd
    for (std::size_t k = 0; k < count; ++k) {
      const double sum = a0[k] + a1[k] + a2[k] + b0[k] + b1[k] + b2[k] + c0[k] + c1[k] + c2[k];
      to[k] = static_cast<float>(luminance[k] + sum / 9.0);
    }
  };
  add(red, out[0]);
  add(blue, out[2]);
  const float* const r = out[0];
  const float* const b = out[2];
  float* const g = out[1];
  // Another set of weights than that of the luminance, on purpose: developed pictures have their green from it.
#pragma omp simd
  for (std::size_t k = 0; k < count; ++k)
    g[k] = static_cast<float>((luminance[k] - 0.299 * r[k] - 0.114 * b[k]) / 0.587);
}

void SplitQuarter(std::span<const float> row, int quarter, float* out) {
  const float* const from = row.data();
  const std::size_t width = row.size();
  for (std::size_t x = static_cast<std::size_t>(quarter), k = 0; x < width; x += 4, ++k) out[k] = from[x];
}

void JoinQuarters(const QuarterRow<const float>& row, int left, std::span<float> out) {
  const auto at = [&row](std::size_t x) { return row.quarter[x & 3][x >> 2]; };
  const std::size_t first = static_cast<std::size_t>(left);
  const std::size_t count = out.size();
  std::size_t i = 0;
  for (; i < count && (first + i) % 4 != 0; ++i) out[i] = at(first + i);
  const std::size_t cells = (count - i) / 4;
  const std::size_t cell = (first + i) / 4;
  const float* const q0 = row.quarter[0] + cell;
  const float* const q1 = row.quarter[1] + cell;
  const float* const q2 = row.quarter[2] + cell;
  const float* const q3 = row.quarter[3] + cell;
  float* const to = out.data() + i;
#pragma omp simd
  for (std::size_t k = 0; k < cells; ++k) {
    to[4 * k] = q0[k];
    to[4 * k + 1] = q1[k];
    to[4 * k + 2] = q2[k];
    to[4 * k + 3] = q3[k];
  }
  for (i += 4 * cells; i < count; ++i) out[i] = at(first + i);
}

}  // namespace qmr
