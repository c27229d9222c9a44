#include "qmrimg/stacking/kernels/composit_rows.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace qmr {
namespace {

// ---- Modes ---------------------------------------------------------------------------------------------------------

float Limit(float v, float low, float high) {
  return v < low ? low : v > high ? high : v;
}

struct Average {
  explicit Average(const CompositRule&) {}
  float operator()(float a, float b) const { return (b + a) * 0.5f; }
};

struct Add {
  explicit Add(const CompositRule&) {}
  float operator()(float a, float b) const { return b + a; }
};

struct Weighted {
  explicit Weighted(const CompositRule& rule) : ratioA(1.0 - rule.ratio), ratioB(rule.ratio) {}
  float operator()(float a, float b) const { return static_cast<float>(ratioA * a + ratioB * b); }
  double ratioA;
  double ratioB;
};

struct Subtract {
  explicit Subtract(const CompositRule&) {}
  float operator()(float a, float b) const { return a - b; }
};

struct SubtractClipped {
  explicit SubtractClipped(const CompositRule&) {}
  float operator()(float a, float b) const { return std::max(0.0f, a - b); }
};

struct Multiply {
  explicit Multiply(const CompositRule&) {}
  float operator()(float a, float b) const { return a * b; }
};

struct Multiply256 {
  explicit Multiply256(const CompositRule&) {}
  float operator()(float a, float b) const { return a * (Limit(b, 0.0f, 255.0f) / 255.0f); }
};

struct Divide {
  explicit Divide(const CompositRule&) {}
  float operator()(float a, float b) const { return a / (b == 0.0f ? 1.0f : b); }
};

struct Divide256 {
  explicit Divide256(const CompositRule&) {}
  float operator()(float a, float b) const { return a / (Limit(b, 0.001f, 255.0f) / 255.0f); }
};

struct Difference {
  explicit Difference(const CompositRule&) {}
  float operator()(float a, float b) const { return std::fabs(a - b); }
};

struct Brighter {
  explicit Brighter(const CompositRule&) {}
  float operator()(float a, float b) const { return std::max(a, b); }
};

struct Darker {
  explicit Darker(const CompositRule&) {}
  float operator()(float a, float b) const { return std::min(a, b); }
};

struct Pass {
  explicit Pass(const CompositRule&) {}
  float operator()(float a, float) const { return a; }
};

using RawRow = void (*)(const CompositRule& rule, const float* a, const float* b, int count, float* out);
using ScaledRow = void (*)(const CompositRule& rule, const CompositLevels& levels, const float* a, const float* b,
                           int count, float* out);

template <class Mode>
void CombineRaw(const CompositRule& rule, const float* a, const float* b, int count, float* out) {
  const Mode mode(rule);
#pragma omp simd
  for (int i = 0; i < count; ++i) out[i] = mode(a[i], b[i]);
}

template <class Mode>
void Combine256(const CompositRule& rule, const CompositLevels& levels, const float* a, const float* b, int count,
                float* out) {
  const Mode mode(rule);
  const CompositLevels l = levels;
#pragma omp simd
  for (int i = 0; i < count; ++i) out[i] = mode((a[i] - l.min) * l.gain, b[i]) * l.inverse + l.min;
}

struct ModeRows {
  RawRow raw;
  ScaledRow scaled;
  float outside;
};

template <class Mode, class Mode256 = Mode>
constexpr ModeRows RowsOf(float outside = 0.0f) {
  return {CombineRaw<Mode>, Combine256<Mode256>, outside};
}

// In the order of their numbers. The factor and the divisor that leave A as it is stand at 255.0 on purpose also for
// raw values.
constexpr ModeRows kModes[] = {
    RowsOf<Average>(),
    RowsOf<Add>(),
    RowsOf<Weighted>(),
    RowsOf<Subtract>(),
    RowsOf<Multiply, Multiply256>(255.0f),
    RowsOf<Divide, Divide256>(255.0f),
    RowsOf<Difference>(),
    RowsOf<Brighter>(),
    RowsOf<Darker>(),
};
constexpr ModeRows kClippedSubtraction = RowsOf<SubtractClipped>();
constexpr ModeRows kPass = RowsOf<Pass>();
constexpr int kSubtraction = 3;

const ModeRows& Find(int mode, bool clipNegative) {
  if (mode < 0 || mode >= static_cast<int>(std::size(kModes))) return kPass;
  return mode == kSubtraction && clipNegative ? kClippedSubtraction : kModes[mode];
}

}  // namespace

void CompositRow(int mode, const CompositRule& rule, const float* a, const float* b, int count, float* out) {
  Find(mode, rule.clipNegative).raw(rule, a, b, count, out);
}

void CompositRow256(int mode, const CompositRule& rule, const CompositLevels& levels, const float* a, const float* b,
                    int count, float* out) {
  Find(mode, rule.clipNegative).scaled(rule, levels, a, b, count, out);
}

float CompositOutside(int mode) {
  return Find(mode, false).outside;
}

// ---- Rows of B in single precision ---------------------------------------------------------------------------------

namespace {

struct Corners {
  Corners(float fx, float fy) : p00((1.0f - fy) * (1.0f - fx)), p01(fy - fx * fy), p10(fx - fx * fy), p11(fx * fy) {}
  float operator()(float v00, float v10, float v01, float v11) const {
    return p00 * v00 + p01 * v01 + p10 * v10 + p11 * v11;
  }
  float p00, p01, p10, p11;
};

}  // namespace

void BlendRow(const float* upper, const float* lower, int count, float fx, float fy, float* out) {
  const Corners weights(fx, fy);
#pragma omp simd
  for (int i = 0; i < count; ++i) out[i] = weights(upper[i], upper[i + 1], lower[i], lower[i + 1]);
}

float BlendPixel(const float* upper, const float* lower, int x, int neighbor, float fx, float fy) {
  if (fx == 0.0f && fy == 0.0f) return upper[x];
  return Corners(fx, fy)(upper[x], upper[neighbor], lower[x], lower[neighbor]);
}

void BlendTurnedRow(const float* const* rows, int width, int height, const float* x, const float* y, int count,
                    float* out) {
  for (int i = 0; i < count; ++i) {
    const int ix = static_cast<int>(x[i]);
    const int iy = static_cast<int>(y[i]);
    out[i] = BlendPixel(rows[iy], rows[std::min(iy + 1, height - 1)], ix, std::min(ix + 1, width - 1),
                        x[i] - static_cast<float>(ix), y[i] - static_cast<float>(iy));
  }
}

// ---- Neighbours ----------------------------------------------------------------------------------------------------

void WindowMaxRow(const float* padded, int count, int radius, float* out) {
  std::copy_n(padded, count, out);
  for (int k = 1; k <= 2 * radius; ++k) RaiseRow(padded + k, count, out);
}

void RaiseRow(const float* row, int count, float* out) {
#pragma omp simd
  for (int i = 0; i < count; ++i) out[i] = row[i] > out[i] ? row[i] : out[i];
}

}  // namespace qmr
