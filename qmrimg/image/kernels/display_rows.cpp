#include "qmrimg/image/kernels/display_rows.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace qmr {
namespace {

// Words are stored as they lie in memory.
static_assert(std::endian::native == std::endian::little);

// The double mapping without its division. Comparisons with a double turn into comparisons with the nearest float on
// the right side of it.
struct FastLevels {
  explicit FastLevels(const BlockLevels& levels)
      : min(levels.min),
        k(255.0 / levels.range),
        lower(static_cast<float>(levels.min)),
        upper(static_cast<float>(levels.max)) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    if (static_cast<double>(lower) > levels.min) lower = std::nextafter(lower, -kInfinity);
    if (static_cast<double>(upper) < levels.max) upper = std::nextafter(upper, kInfinity);
  }
  double min;
  double k;
  float lower;
  float upper;
};

// A product differs from the quotient by a few bits of a double, and that matters only beside a tie: closer than this
// to one, a value is doubtful. The margin also covers the rounding to float, less than 1e-5 below 256.
constexpr float kSure = 0.4999f;

inline std::uint32_t FastByte(float v, const FastLevels& levels, std::uint32_t& doubt) {
  const float value = static_cast<float>((v - levels.min) * levels.k);
  const std::uint32_t bits = RoundToBits(value);
  const float rest = value - (std::bit_cast<float>(bits) - kRounder);
  doubt |= MaskOf(std::fabs(rest) > kSure);
  return (bits | MaskOf(v >= levels.upper)) & MaskOf(v > levels.lower) & 0xFFu;
}

// A stretch that is done again with the division when one of its values is doubtful.
constexpr std::size_t kStretch = 32;

// True when `doubts` is all zero.
inline bool AllSure(const std::uint32_t (&doubts)[kStretch]) {
  std::uint32_t any = 0;
  for (const std::uint32_t d : doubts) any |= d;
  return any == 0;
}

inline std::uint32_t GrayWord(std::uint32_t v) {
  return v | v << 8 | v << 16;
}

}  // namespace

void GrayWords(const float* gray, std::size_t count, const DisplayLevels& levels, std::uint32_t* words) {
  const DisplayLevels l = levels;
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) words[i] = GrayWord(ToByte(gray[i], l));
}

void GrayWords(const float* gray, std::size_t count, const BlockLevels& levels, std::uint32_t* words) {
  const BlockLevels exact = levels;
  const FastLevels fast(levels);
  for (std::size_t x = 0; x < count; x += kStretch, gray += kStretch, words += kStretch) {
    const std::size_t n = std::min(kStretch, count - x);
    std::uint32_t doubts[kStretch] = {};
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) {
      std::uint32_t doubt = 0;
      words[i] = GrayWord(FastByte(gray[i], fast, doubt));
      doubts[i] = doubt;
    }
    if (AllSure(doubts)) continue;
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) words[i] = GrayWord(ToByte(gray[i], exact));
  }
}

void RgbWords(const float* r, const float* g, const float* b, std::size_t count, const DisplayLevels (&levels)[3],
              std::uint32_t* words) {
  const DisplayLevels l0 = levels[0], l1 = levels[1], l2 = levels[2];
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) words[i] = ToByte(r[i], l0) << 16 | ToByte(g[i], l1) << 8 | ToByte(b[i], l2);
}

void RgbWords(const float* r, const float* g, const float* b, std::size_t count, const BlockLevels (&levels)[3],
              std::uint32_t* words) {
  const BlockLevels e0 = levels[0], e1 = levels[1], e2 = levels[2];
  const FastLevels f0(e0), f1(e1), f2(e2);
  for (std::size_t x = 0; x < count; x += kStretch) {
    const std::size_t n = std::min(kStretch, count - x);
    std::uint32_t doubts[kStretch] = {};
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) {
      std::uint32_t doubt = 0;
      words[x + i] =
          FastByte(r[x + i], f0, doubt) << 16 | FastByte(g[x + i], f1, doubt) << 8 | FastByte(b[x + i], f2, doubt);
      doubts[i] = doubt;
    }
    if (AllSure(doubts)) continue;
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i)
      words[x + i] = ToByte(r[x + i], e0) << 16 | ToByte(g[x + i], e1) << 8 | ToByte(b[x + i], e2);
  }
}

void StoreGray8(const std::uint32_t* words, std::size_t count, std::uint8_t* dst) {
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) dst[i] = static_cast<std::uint8_t>(words[i]);
}

void StoreRgb8(const std::uint32_t* words, std::size_t count, std::uint8_t* dst) {
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t w = words[i];
    dst[i] = static_cast<std::uint8_t>((w & 0xC0u) | (w >> 10 & 0x38u) | w >> 21);
  }
}

void StoreDithered16(const std::uint32_t* words, std::size_t count, int phase, std::uint8_t* dst) {
  const auto first = static_cast<std::uint32_t>(phase);
  const auto add = [](std::uint32_t v, std::uint32_t more) { return v + more > 255u ? 255u : v + more; };
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t more = (first + static_cast<std::uint32_t>(i)) % 2 == 0 ? 4u : 0u;
    const std::uint32_t b = add(words[i] & 0xFFu, more);
    const std::uint32_t g = add(words[i] >> 8 & 0xFFu, more);
    const std::uint32_t r = add(words[i] >> 16, more);
    const auto v = static_cast<std::uint16_t>((r & 0xF8u) << 7 | (g & 0xF8u) << 2 | b >> 3);
    std::memcpy(dst + 2 * i, &v, sizeof v);
  }
}

void Store24(const std::uint32_t* words, std::size_t count, std::uint8_t* dst) {
  std::size_t i = 0;
#if defined(__SSSE3__)
  // Four pixels a store where the processor can gather bytes; its last four bytes belong to the next two pixels.
  using Bytes = std::uint8_t __attribute__((vector_size(16)));
  for (; i + 6 <= count; i += 4, dst += 12) {
    Bytes v;
    std::memcpy(&v, words + i, sizeof v);
    v = __builtin_shufflevector(v, v, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 15, 15, 15, 15);
    std::memcpy(dst, &v, sizeof v);
  }
#endif
  // Two pixels a store of eight bytes. Its last two bytes belong to the next pixel, which is stored later: there has to
  // be one.
  for (; i + 3 <= count; i += 2, dst += 6) {
    const std::uint64_t pair = words[i] | static_cast<std::uint64_t>(words[i + 1]) << 24;
    std::memcpy(dst, &pair, sizeof pair);
  }
  for (; i < count; ++i, dst += 3) {
    dst[0] = static_cast<std::uint8_t>(words[i]);
    dst[1] = static_cast<std::uint8_t>(words[i] >> 8);
    dst[2] = static_cast<std::uint8_t>(words[i] >> 16);
  }
}

void Store32(const std::uint32_t* words, std::size_t count, std::uint8_t* dst) {
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t old;
    std::memcpy(&old, dst + 4 * i, sizeof old);
    const std::uint32_t v = (old & 0xFF000000u) | words[i];
    std::memcpy(dst + 4 * i, &v, sizeof v);
  }
}

}  // namespace qmr
