#include "qmrimg/restoration/kernels/entropy_rows.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <type_traits>

namespace qmr {
namespace {

constexpr int kLanes = 8;

inline float Log(float x) {
  // x = m 2^e with m in sqrt(1/2) .. sqrt(2); ln m is the series of atanh((m - 1) / (m + 1)).
  const std::int32_t bits = std::bit_cast<std::int32_t>(x);
  const std::int32_t e = (bits - 0x3f3504f3) >> 23;
  const float m = std::bit_cast<float>(bits - e * (1 << 23));
  const float s = (m - 1.0f) / (m + 1.0f);
  const float q = s * s;
  const float series = q * (2.0f / 3.0f + q * (2.0f / 5.0f + q * (2.0f / 7.0f + q * (2.0f / 9.0f))));
  const float k = static_cast<float>(e);
  // ln 2 in two parts, the first of few bits, so that its product is exact.
  return k * 0.693359375f + (k * -2.12194440e-4f + (2.0f * s + s * series));
}

// One sum in lanes. Pixel x goes to lane x modulo 8, so the place of a pixel decides and not the vector's width.
struct LaneSum {
  double lane[kLanes] = {};
  double Total() const {
    double total = 0.0;
    for (const double v : lane) total += v;
    return total;
  }
};

// Runs `block(x, lanes)` over whole groups of eight pixels and then over the rest.
template <class Block>
inline void InLanes(int count, Block&& block) {
  int x = 0;
  for (; x + kLanes <= count; x += kLanes) block(x, std::integral_constant<int, kLanes>());
  if (x < count) block(x, count - x);
}

// 1 where a value is finite.
inline float Counts(float v) {
  return v - v == 0.0f ? 1.0f : 0.0f;
}

}  // namespace

void GradientSums::Add(const GradientSums& other) {
  entropy += other.entropy;
  cross += other.cross;
  pull += other.pull;
  response += other.response;
}

void ConjugateSums::Add(const ConjugateSums& other) {
  entropyCross += other.entropyCross;
  entropyLast += other.entropyLast;
  dataCross += other.dataCross;
  dataLast += other.dataLast;
}

void DirectionSums::Add(const DirectionSums& other) {
  square += other.square;
  data += other.data;
  residual += other.residual;
  largest = std::max(largest, other.largest);
  fall = std::max(fall, other.fall);
}

void LineSums::Add(const LineSums& other) {
  slope += other.slope;
  curvature += other.curvature;
}

void ResidualSums::Add(const ResidualSums& other) {
  square += other.square;
  sum += other.sum;
}

GradientSums GradientRow(const float* f, const float* pull, int count, float inverseLevel, float weight, float* logs) {
  LaneSum entropy, cross, square, response;
  InLanes(count, [&](int x, auto lanes) {
    const float* const fx = f + x;
    const float* const px = pull + x;
    float* const lx = logs + x;
#pragma omp simd
    for (int t = 0; t < lanes; ++t) {
      const float log = Log(fx[t] * inverseLevel);
      const double v = fx[t], l = log, p = px[t];
      lx[t] = log;
      entropy.lane[t] += v * l * l;
      cross.lane[t] += v * l * p;
      square.lane[t] += v * p * p;
      response.lane[t] += fx[t] / (1.0f + weight * fx[t]);
    }
  });
  return {entropy.Total(), cross.Total(), square.Total(), response.Total()};
}

void PreconditionRow(const float* f, const float* logs, int count, float weight, float raise, float curvature,
                     float* pull) {
#pragma omp simd
  for (int x = 0; x < count; ++x) pull[x] = f[x] / (1.0f + curvature * f[x]) * (weight * pull[x] - (logs[x] - raise));
}

ConjugateSums ConjugateRow(const float* f, const float* fresh, const float* last, int count, const float* data,
                           const float* blurredFresh, const float* blurredLast, int dataCount) {
  LaneSum entropyCross, entropyLast, dataCross, dataLast;
  InLanes(count, [&](int x, auto lanes) {
    const float* const fx = f + x;
    const float* const a = fresh + x;
    const float* const b = last + x;
#pragma omp simd
    for (int t = 0; t < lanes; ++t) {
      const double share = b[t] / fx[t];
      entropyCross.lane[t] += a[t] * share;
      entropyLast.lane[t] += b[t] * share;
    }
  });
  InLanes(dataCount, [&](int x, auto lanes) {
    const float* const d = data + x;
    const float* const a = blurredFresh + x;
    const float* const b = blurredLast + x;
#pragma omp simd
    for (int t = 0; t < lanes; ++t) {
      const double v = b[t] * Counts(d[t]);
      dataCross.lane[t] += a[t] * v;
      dataLast.lane[t] += b[t] * v;
    }
  });
  return {entropyCross.Total(), entropyLast.Total(), dataCross.Total(), dataLast.Total()};
}

DirectionSums DirectionRow(const float* f, const float* fresh, float beta, float* step, int count, const float* data,
                           float scale, const float* blurred, const float* blurredFresh, float* blurredStep,
                           int dataCount) {
  LaneSum square, dataSquare, residual;
  float largest[kLanes] = {}, fall[kLanes] = {};
  InLanes(count, [&](int x, auto lanes) {
    const float* const fx = f + x;
    const float* const a = fresh + x;
    float* const b = step + x;
#pragma omp simd
    for (int t = 0; t < lanes; ++t) {
      const float s = a[t] + beta * b[t];
      b[t] = s;
      const float size = s < 0.0f ? -s : s;
      const float share = -s / fx[t];
      square.lane[t] += static_cast<double>(s) * s;
      largest[t] = size > largest[t] ? size : largest[t];
      fall[t] = share > fall[t] ? share : fall[t];
    }
  });
  InLanes(dataCount, [&](int x, auto lanes) {
    const float* const d = data + x;
    const float* const m = blurred + x;
    const float* const a = blurredFresh + x;
    float* const b = blurredStep + x;
#pragma omp simd
    for (int t = 0; t < lanes; ++t) {
      const float u = a[t] + beta * b[t];
      b[t] = u;
      const bool counts = d[t] - d[t] == 0.0f;
      const double v = counts ? u : 0.0f;
      const float r = counts ? d[t] * scale - m[t] : 0.0f;
      dataSquare.lane[t] += v * v;
      residual.lane[t] += v * r;
    }
  });
  DirectionSums sums{square.Total(), dataSquare.Total(), residual.Total()};
  for (int t = 0; t < kLanes; ++t) {
    sums.largest = std::max(sums.largest, largest[t]);
    sums.fall = std::max(sums.fall, fall[t]);
  }
  return sums;
}

LineSums LineRow(const float* f, const float* step, int count, float a, float inverseLevel) {
  LaneSum slope, curvature;
  InLanes(count, [&](int x, auto lanes) {
    const float* const fx = f + x;
    const float* const s = step + x;
#pragma omp simd
    for (int t = 0; t < lanes; ++t) {
      const float sum = fx[t] + a * s[t], end = fx[t] * kLeastShare;
      const bool free = sum > end;
      const float v = free ? sum : end;
      const double size = s[t];
      slope.lane[t] -= size * Log(v * inverseLevel);
      curvature.lane[t] += size * (free ? s[t] / v : 0.0f);
    }
  });
  return {slope.Total(), curvature.Total()};
}

bool StepRow(float* f, float* step, int count, float a, float floor) {
  int held[kLanes] = {};
  InLanes(count, [&](int x, auto lanes) {
    float* const fx = f + x;
    float* const s = step + x;
#pragma omp simd
    for (int t = 0; t < lanes; ++t) {
      const float before = fx[t], sum = before + a * s[t];
      const float share = before * kLeastShare;
      const float end = share > floor ? share : floor;
      const bool free = sum > end;
      fx[t] = free ? sum : end;
      s[t] = free ? s[t] : (end - before) / a;
      held[t] |= free ? 0 : 1;
    }
  });
  return std::any_of(held, held + kLanes, [](int h) { return h != 0; });
}

void RetreatRow(float* f, const float* step, int count, float a, float floor) {
#pragma omp simd
  for (int x = 0; x < count; ++x) {
    const float v = f[x] - a * step[x];
    f[x] = v > floor ? v : floor;
  }
}

void DifferenceRow(const float* now, const float* blurred, int count, float a, float* blurredStep) {
#pragma omp simd
  for (int x = 0; x < count; ++x) blurredStep[x] = (now[x] - blurred[x]) / a;
}

ResidualSums ResidualRow(float* blurred, const float* blurredStep, int count, float a, const float* data, float scale,
                         int dataCount, float* residual) {
  LaneSum square, total;
  InLanes(dataCount, [&](int x, auto lanes) {
    const float* const d = data + x;
    const float* const u = blurredStep + x;
    float* const m = blurred + x;
    float* const r = residual + x;
#pragma omp simd
    for (int t = 0; t < lanes; ++t) {
      const float model = m[t] + a * u[t];
      m[t] = model;
      const float v = d[t] - d[t] == 0.0f ? d[t] * scale - model : 0.0f;
      r[t] = v;
      square.lane[t] += static_cast<double>(v) * v;
      total.lane[t] += v;
    }
  });
  std::fill(residual + dataCount, residual + count, 0.0f);
  return {square.Total(), total.Total()};
}

}  // namespace qmr
