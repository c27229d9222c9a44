#include "qmrimg/filters/kernels/block_rows.h"

#include <algorithm>
#include <cstring>

#include "qmrimg/filters/kernels/lanes.h"

namespace qmr {
namespace {

// Floats that fill the register which holds kLanes doubles.
constexpr int kWide = 2 * kLanes;
using WideLanes = float __attribute__((vector_size(kWide * sizeof(float))));

// Vectors side by side: enough sums to hide the latency of an addition, few enough to stay in registers.
constexpr int kTile = 8;

static_assert(kBlockSlack >= kTile * kWide);

inline WideLanes LoadWide(const float* from) {
  WideLanes v;
  std::memcpy(&v, from, sizeof v);
  return v;
}

inline void AddTerm(WideLanes& sum, const float* pixels, float weight) {
  sum += LoadWide(pixels) * weight;
}

// The term is formed and added in double, and the sum rounded.
inline void AddTerm(FloatLanes& sum, const float* pixels, float weight) {
  const DoubleLanes wide = __builtin_convertvector(sum, DoubleLanes);
  sum = __builtin_convertvector(wide + LoadLanes(pixels) * static_cast<double>(weight), FloatLanes);
}

// kTile vectors of sums at column `x` of the taps.
template <class Lanes>
inline void SumTile(std::span<const BlockTap> taps, std::size_t x, float* out) {
  constexpr std::size_t kCount = sizeof(Lanes) / sizeof(float);
  Lanes sums[kTile] = {};
  for (const BlockTap& tap : taps)
    for (std::size_t b = 0; b < kTile; ++b) AddTerm(sums[b], tap.pixels + x + b * kCount, tap.weight);
  for (std::size_t b = 0; b < kTile; ++b) std::memcpy(out + b * kCount, &sums[b], sizeof(Lanes));
}

template <class Lanes>
void SumColumns(std::span<const BlockTap> taps, std::size_t first, std::size_t last, float* out) {
  constexpr std::size_t kColumns = kTile * sizeof(Lanes) / sizeof(float);
  std::size_t x = first;
  for (; x + kColumns <= last; x += kColumns) SumTile<Lanes>(taps, x, out + x);
  if (x >= last) return;
  float tail[kColumns];
  SumTile<Lanes>(taps, x, tail);
  std::copy_n(tail, last - x, out + x);
}

}  // namespace

void PadRow(std::span<const float> src, std::int64_t start, std::span<float> out) {
  const std::int64_t width = static_cast<std::int64_t>(src.size());
  const std::int64_t count = static_cast<std::int64_t>(out.size());
  // Output positions whose column lies inside the row.
  const std::int64_t first = std::clamp<std::int64_t>(-start, 0, count);
  const std::int64_t last = std::clamp<std::int64_t>(width - start, first, count);
  float* const to = out.data();
  std::fill(to, to + first, src.front());
  if (last > first) std::copy_n(src.data() + (start + first), last - first, to + first);
  std::fill(to + last, to + count, src.back());
}

bool AllFinite(std::span<const float> row) {
  // A value minus itself is 0, or not a number, which no sum gets rid of.
  WideLanes sums = {};
  std::size_t x = 0;
  for (; x + kWide <= row.size(); x += kWide) {
    const WideLanes v = LoadWide(row.data() + x);
    sums += v - v;
  }
  float sum = 0.0f;
  for (; x < row.size(); ++x) sum += row[x] - row[x];
  for (int i = 0; i < kWide; ++i) sum += sums[i];
  return sum == 0.0f;
}

void SumTaps(std::span<const BlockTap> taps, std::size_t first, std::size_t last, float* out) {
  SumColumns<WideLanes>(taps, first, last, out);
}

void SumTapsRounded(std::span<const BlockTap> taps, std::size_t first, std::size_t last, float* out) {
  SumColumns<FloatLanes>(taps, first, last, out);
}

}  // namespace qmr
