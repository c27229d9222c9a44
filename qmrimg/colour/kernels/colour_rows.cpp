#include "qmrimg/colour/kernels/colour_rows.h"

#include <algorithm>

#include "qmrimg/image/kernels/streaming.h"

namespace qmr {
namespace {

// The smallest positive normal float and the largest one.
constexpr double kLeastResult = 1.1754943508222875e-38;
constexpr double kGreatestResult = 3.4028234663852886e38;

// Pixels that a row is worked on at a time: intermediate values stay in the fastest cache.
constexpr std::size_t kBlock = 256;

double LimitToPositive(double v) {
  const double raised = v < kLeastResult ? kLeastResult : v;
  return raised > kGreatestResult ? kGreatestResult : raised;
}

// kWhole: the strength is 1, and the result takes the corrected value as it is.
template <bool kWhole>
void CorrectAbout(const RgbResult& rows, const CorrectionAbout& correction) {
  const CorrectionAbout c = correction;
  float* const p0 = rows[0].data();
  float* const p1 = rows[1].data();
  float* const p2 = rows[2].data();
  const std::size_t width = rows[0].size();
  const double rest = 1.0 - c.strength;
  const auto mix = [&c, rest](float old, double t) {
    const double limited = LimitToPositive(t);
    return static_cast<float>(kWhole ? limited : old * rest + limited * c.strength);
  };
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const double r = p0[x] - c.level;
    const double g = p1[x] - c.level;
    const double b = p2[x] - c.level;
    p0[x] = mix(p0[x], c.m[0][0] * r + c.m[0][1] * g + c.m[0][2] * b + c.level);
    p1[x] = mix(p1[x], c.m[1][0] * r + c.m[1][1] * g + c.m[1][2] * b + c.level);
    p2[x] = mix(p2[x], c.m[2][0] * r + c.m[2][1] * g + c.m[2][2] * b + c.level);
  }
}

template <bool kWhole>
void CorrectBetween(const RgbSource& src, const RgbResult& dst, const CorrectionBetween& correction) {
  const CorrectionBetween c = correction;
  const float* const s0 = src[0].data();
  const float* const s1 = src[1].data();
  const float* const s2 = src[2].data();
  float* const d0 = dst[0].data();
  float* const d1 = dst[1].data();
  float* const d2 = dst[2].data();
  const std::size_t width = src[0].size();
  const double in[3] = {255.0 / c.from[0].range, 255.0 / c.from[1].range, 255.0 / c.from[2].range};
  const double out[3] = {c.to[0].range / 255.0, c.to[1].range / 255.0, c.to[2].range / 255.0};
  const double rest = 1.0 - c.strength;
  const auto mix = [&c, rest](float old, double t) {
    return static_cast<float>(kWhole ? t : t * c.strength + old * rest);
  };
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) {
    const float r = s0[x], g = s1[x], b = s2[x];
    const double sr = (r - c.from[0].min) * in[0];
    const double sg = (g - c.from[1].min) * in[1];
    const double sb = (b - c.from[2].min) * in[2];
    d0[x] = mix(r, (c.m[0][0] * sr + c.m[0][1] * sg + c.m[0][2] * sb) * out[0] + c.to[0].min);
    d1[x] = mix(g, (c.m[1][0] * sr + c.m[1][1] * sg + c.m[1][2] * sb) * out[1] + c.to[1].min);
    d2[x] = mix(b, (c.m[2][0] * sr + c.m[2][1] * sg + c.m[2][2] * sb) * out[2] + c.to[2].min);
  }
}

// A block of pixels on its way through a palette. The ends of each blend stand apart by channel, so that all but the
// copying of table entries runs across pixels.
struct PaletteBlock {
  float value[kBlock];
  double limited[kBlock];
  int index[kBlock];
  double way[kBlock];
  float from[3][kBlock];
  float to[3][kBlock];
};

void LimitValues(PaletteBlock& block, std::size_t count, int repeat) {
  const float* const value = block.value;
  double* const limited = block.limited;
  if (repeat > 0) {
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) limited[x] = LimitTo255(Wrap(repeat * LimitTo255(value[x])));
  } else {
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) limited[x] = LimitTo255(value[x]);
  }
}

void LookUp(PaletteBlock& block, std::size_t count, const Palette& palette) {
  const double step = palette.step;
  const double blend = palette.blend;
#pragma omp simd
  for (std::size_t x = 0; x < count; ++x) {
    const double v = block.limited[x];
    const int i = IndexOf(v, step);
    block.index[x] = i;
    block.way[x] = WayOf(v, i, step, blend);
  }
  for (std::size_t x = 0; x < count; ++x) {
    const auto* const colour = &palette.colours[static_cast<std::size_t>(block.index[x])];
    for (std::size_t k = 0; k < 3; ++k) {
      block.from[k][x] = colour[0][k];
      block.to[k][x] = colour[1][k];
    }
  }
}

// Colours of a block of values, taken to the levels of the result.
void StoreColours(PaletteBlock& block, std::size_t count, const RgbResult& dst, std::size_t at, const FalseColour& f) {
  LimitValues(block, count, f.repeat);
  if (f.palette) LookUp(block, count, *f.palette);
  for (std::size_t plane = 0; plane < 3; ++plane) {
    float* const to = dst[plane].data() + at;
    const double k = f.levels[plane].range / 255.0;
    const double min = f.levels[plane].min;
    if (f.palette) {
      const float* const before = block.from[plane];
      const float* const after = block.to[plane];
#pragma omp simd
      for (std::size_t x = 0; x < count; ++x)
        to[x] = static_cast<float>(Blend(before[x], after[x], block.way[x]) * k + min);
    } else {
#pragma omp simd
      for (std::size_t x = 0; x < count; ++x)
        to[x] = static_cast<float>(static_cast<float>(block.limited[x]) * k + min);
    }
  }
}

// Runs `values(first, count, to)` and stores the colours, block by block.
template <class Values>
void InBlocks(std::size_t width, const RgbResult& dst, const FalseColour& colour, const Values& values) {
  PaletteBlock block;
  for (std::size_t at = 0; at < width; at += kBlock) {
    const std::size_t count = std::min(kBlock, width - at);
    values(at, count, block.value);
    StoreColours(block, count, dst, at, colour);
  }
}

}  // namespace

void OffsetRow(std::span<const float> src, std::span<float> dst, float offset) {
  const float* const from = src.data();
  float* const to = dst.data();
  const std::size_t width = src.size();
#pragma omp simd
  for (std::size_t x = 0; x < width; ++x) to[x] = from[x] + offset;
}

void OffsetRowStreaming(std::span<const float> src, std::span<float> dst, int column, float offset) {
  StreamRow(src, dst, column, [offset](auto v) { return v + Splat<decltype(v)>(offset); });
}

void CorrectRow(const RgbResult& rows, const CorrectionAbout& correction) {
  if (correction.strength == 1.0)
    CorrectAbout<true>(rows, correction);
  else
    CorrectAbout<false>(rows, correction);
}

void CorrectRow(const RgbSource& src, const RgbResult& dst, const CorrectionBetween& correction) {
  if (correction.strength == 1.0)
    CorrectBetween<true>(src, dst, correction);
  else
    CorrectBetween<false>(src, dst, correction);
}

float LeastOfRow(std::span<const float> row, float least) {
  // One minimum a lane: their order has no say in the result.
  constexpr std::size_t kLanes = 16;
  float lanes[kLanes];
  std::fill_n(lanes, kLanes, least);
  const float* const p = row.data();
  const std::size_t whole = row.size() / kLanes * kLanes;
  for (std::size_t x = 0; x < whole; x += kLanes) {
#pragma omp simd
    for (std::size_t i = 0; i < kLanes; ++i) lanes[i] = p[x + i] < lanes[i] ? p[x + i] : lanes[i];
  }
  for (std::size_t x = whole; x < row.size(); ++x) least = p[x] < least ? p[x] : least;
  for (const float lane : lanes) least = lane < least ? lane : least;
  return least;
}

void FalseColourRow(const RgbSource& src, const RgbResult& dst, const FalseColour& colour) {
  const FalseColour f = colour;
  const double k0 = f.levels[0].range / 255.0, k1 = f.levels[1].range / 255.0, k2 = f.levels[2].range / 255.0;
  // Each step is rounded to float.
  const auto value = [&f](float pixel, double min, double k) {
    return static_cast<float>(static_cast<float>((pixel - min) / k) - f.low) * f.scale;
  };
  InBlocks(src[0].size(), dst, f, [&](std::size_t at, std::size_t count, float* to) {
    const float* const s0 = src[0].data() + at;
    const float* const s1 = src[1].data() + at;
    const float* const s2 = src[2].data() + at;
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) {
      const float r = value(s0[x], f.levels[0].min, k0);
      const float g = value(s1[x], f.levels[1].min, k1);
      const float b = value(s2[x], f.levels[2].min, k2);
      to[x] = static_cast<float>(r * 0.299 + g * 0.587 + b * 0.114);
    }
  });
}

void FalseColourRow(std::span<const float> src, const RgbResult& dst, const FalseColour& colour) {
  const FalseColour f = colour;
  const double k = 255.0 / f.levels[0].range;
  InBlocks(src.size(), dst, f, [&](std::size_t at, std::size_t count, float* to) {
    const float* const s = src.data() + at;
#pragma omp simd
    for (std::size_t x = 0; x < count; ++x) to[x] = static_cast<float>((s[x] - f.levels[0].min) * k - f.low) * f.scale;
  });
}

}  // namespace qmr
