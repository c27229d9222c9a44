#include "host/simulate/random.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

#include "host/simulate/portable_math.h"

namespace qmr::sim {

namespace {

constexpr float ExpansionFrom = 16.0f;

// Natural logarithm in float, without branches, for x in 2^-25..1.
inline float LogUnit(float x) {
  const auto bits = std::bit_cast<std::int32_t>(x);
  // Mantissa into 0.75..1.5, which keeps the argument of the series within 0.2.
  const std::int32_t shifted = bits - 0x3F400000;
  const std::int32_t exponent = shifted >> 23;
  const float m = std::bit_cast<float>(bits - exponent * 0x00800000);
  const float s = (m - 1.0f) / (m + 1.0f);
  const float s2 = s * s;
  const float series = 2.0f + s2 * (0.66666667f + s2 * (0.4f + s2 * (0.28571429f + s2 * 0.22222222f)));
  return s * series + static_cast<float>(exponent) * 0.69314718f;
}

constexpr int SmallLimit = 100;  // no draw of a mean below ExpansionFrom comes near

constexpr auto Reciprocals = [] {
  std::array<double, SmallLimit + 1> table{};
  for (int k = 1; k <= SmallLimit; ++k) table[static_cast<std::size_t>(k)] = 1.0 / k;
  return table;
}();

// e to minus sixteenths, up to ExpansionFrom.
const auto ZeroChances = [] {
  std::array<double, 16 * 16 + 1> table{};
  for (std::size_t k = 0; k < table.size(); ++k) table[k] = Exp(-static_cast<double>(k) / 16.0);
  return table;
}();

// For 0 < mean < ExpansionFrom.
float PoissonSmall(double mean, double u) {
  const auto sixteenths = static_cast<std::size_t>(mean * 16.0);
  const double f = static_cast<double>(sixteenths) / 16.0 - mean;
  const double rest =
      1.0 + f * (1.0 + f * (1.0 / 2 + f * (1.0 / 6 + f * (1.0 / 24 + f * (1.0 / 120 + f * (1.0 / 720))))));
  double p = ZeroChances[sixteenths] * rest;
  std::size_t k = 0;
  while (u > p && k < SmallLimit) {
    u -= p;
    ++k;
    p *= mean * Reciprocals[k];
  }
  return static_cast<float>(k);
}

}  // namespace

double Draws::Normal() {
  const double radius = std::sqrt(-2.0 * Log(Uniform()));
  return radius * SinCosDegrees(360.0 * Uniform()).cosine;
}

double Draws::Exponential() {
  return -Log(Uniform());
}

int Draws::Below(int count) {
  if (count < 1) return 0;
  return std::min(count - 1, static_cast<int>(Uniform() * count));
}

void NormalRow(std::uint64_t key, std::span<float> first, std::span<float> second) {
  constexpr std::size_t Block = 256;
  std::uint32_t radiusBits[Block];
  std::uint32_t angleBits[Block];
  const std::size_t count = std::min(first.size(), second.size());
  for (std::size_t start = 0; start < count; start += Block) {
    const std::size_t n = std::min(Block, count - start);
    for (std::size_t i = 0; i < n; ++i) {
      const std::uint64_t hash = Hash(key, start + i);
      radiusBits[i] = static_cast<std::uint32_t>(hash >> 40);
      angleBits[i] = static_cast<std::uint32_t>(hash) & 0xFFFFFFu;
    }
    float* a = first.data() + start;
    float* b = second.data() + start;
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) {
      const float u = (static_cast<float>(static_cast<std::int32_t>(radiusBits[i])) + 0.5f) * 0x1p-24f;
      const float radius = std::sqrt(-2.0f * LogUnit(u));
      // A quarter turn within +-45 degrees, then one of four quadrants: together a uniform angle.
      const auto quadrant = static_cast<std::int32_t>(angleBits[i] >> 22);
      const float f = static_cast<float>(static_cast<std::int32_t>(angleBits[i] & 0x3FFFFFu));
      const float t = (f + 0.5f) * (1.57079633f * 0x1p-22f) - 0.78539816f;
      const float t2 = t * t;
      const float s = t * (1.0f + t2 * (-0.16666667f + t2 * (8.3333333e-3f + t2 * -1.9841270e-4f)));
      const float c = 1.0f + t2 * (-0.5f + t2 * (4.1666667e-2f + t2 * (-1.3888889e-3f + t2 * 2.4801587e-5f)));
      const float x = (quadrant & 1) ? -s : c;
      const float y = (quadrant & 1) ? c : s;
      const float r = (quadrant & 2) ? -radius : radius;
      a[i] = r * x;
      b[i] = r * y;
    }
  }
}

void PoissonRow(std::uint64_t key, std::span<const float> normal, std::span<float> mean) {
  const std::size_t count = std::min(normal.size(), mean.size());
  constexpr std::size_t Block = 256;
  float large[Block];
  for (std::size_t start = 0; start < count; start += Block) {
    const std::size_t n = std::min(Block, count - start);
    float* m = mean.data() + start;
    const float* z = normal.data() + start;
    // Rounding to counts adds a variance of 1/12, which the spread gives back.
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) {
      const float lambda = m[i] > ExpansionFrom ? m[i] : ExpansionFrom;
      const float spread = std::sqrt(lambda - 0.0833333333f);
      const float z1 = z[i];
      const float z2 = z1 * z1;
      const float x = lambda + spread * z1 + (z2 - 1.0f) * 0.166666667f + (z1 - z1 * z2) * 0.0138888889f / spread;
      const float limited = x < 0.0f ? 0.0f : (x > 1e9f ? 1e9f : x);
      large[i] = static_cast<float>(static_cast<std::int32_t>(limited + 0.5f));
    }
    for (std::size_t i = 0; i < n; ++i) {
      if (m[i] >= ExpansionFrom) {
        m[i] = large[i];
      } else {
        m[i] = m[i] > 0.0f ? PoissonSmall(m[i], ToUniform(Hash(~key, start + i))) : 0.0f;
      }
    }
  }
}

}  // namespace qmr::sim
