#include "qmrimg/filters/kernels/wavelet_lines.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "qmrimg/filters/kernels/lanes.h"

namespace qmr {
namespace {

// A full vector register of floats.
constexpr int kWide = 2 * kLanes;
using Wide = float __attribute__((vector_size(kWide * sizeof(float))));

constexpr std::ptrdiff_t kTile = kWaveletColumns;
// Room for a periodic continuation before or behind a half of a line; a multiple of all vector widths.
constexpr std::ptrdiff_t kMargin = 16;
static_assert(kMargin >= kMaxWaveletTaps / 2 && kMargin % kWide == 0 && kTile % kWide == 0);

template <class V>
inline V Load(const float* from) {
  V v;
  std::memcpy(&v, from, sizeof v);
  return v;
}

template <class V>
inline void Store(float* to, V v) {
  std::memcpy(to, &v, sizeof v);
}

// Vectors side by side: enough sums to hide the latency of an addition, few enough for 16 registers.
constexpr int kAnalysed = 4;
constexpr int kSynthesised = 2;

// `Count` vectors of places. `even` and `odd` are the samples that the first two taps meet there; the two that follow
// lie `step` behind.
template <int Count, class V>
inline void AnalyseBlock(const float* even, const float* odd, std::ptrdiff_t step, const WaveletTaps& taps, float* lows,
                         float* highs) {
  constexpr std::ptrdiff_t kLength = sizeof(V) / sizeof(float);
  const int count = taps.count;
  V low[Count] = {};
  V high[Count] = {};
  for (int t = 0; t < count; t += 2, even += step, odd += step) {
    for (int b = 0; b < Count; ++b) {
      const V v = Load<V>(even + b * kLength);
      low[b] += v * taps.low[t];
      high[b] += v * taps.high[t];
    }
    for (int b = 0; b < Count; ++b) {
      const V v = Load<V>(odd + b * kLength);
      low[b] += v * taps.low[t + 1];
      high[b] += v * taps.high[t + 1];
    }
  }
  for (int b = 0; b < Count; ++b) {
    Store(lows + b * kLength, low[b]);
    Store(highs + b * kLength, high[b]);
  }
}

// The samples 2i and 2i + 1 for `Count` vectors of i; `lows` and `highs` are the values of the two halves at i, those
// before them lie `step` before. Taps that meet the zeros between the values are left out: a zero of either sign
// leaves a sum that began with +0 as it is, and not-a-number, too.
template <int Count, class V>
inline void SynthesiseBlock(const float* lows, const float* highs, std::ptrdiff_t step, const WaveletTaps& taps,
                            V (&even)[Count], V (&odd)[Count]) {
  constexpr std::ptrdiff_t kLength = sizeof(V) / sizeof(float);
  const int count = taps.count;
  for (int b = 0; b < Count; ++b) even[b] = odd[b] = V{};
  for (int t = 0; t < count; t += 2, lows -= step, highs -= step) {
    for (int b = 0; b < Count; ++b) {
      const V low = Load<V>(lows + b * kLength);
      const V high = Load<V>(highs + b * kLength);
      even[b] += low * taps.low[t] + high * taps.high[t];
      odd[b] += low * taps.low[t + 1] + high * taps.high[t + 1];
    }
  }
}

inline void StoreInterleaved(float* to, float first, float second) {
  to[0] = first;
  to[1] = second;
}

inline void StoreInterleaved(float* to, Wide first, Wide second) {
  [&]<int... I>(std::integer_sequence<int, I...>) {
    Store(to, __builtin_shufflevector(first, second, (I % 2 * kWide + I / 2)...));
    Store(to + kWide, __builtin_shufflevector(first, second, (I % 2 * kWide + kWide / 2 + I / 2)...));
  }
  (std::make_integer_sequence<int, kWide>());
}

// Runs `block(i, n, v)` over i = 0 .. count - 1, n values of the type of v at a time: Count vectors or one or, on short
// lines, a float. The last vector overlaps those before: `block` must not read what it writes.
template <int Count, class Block>
inline void ForBlocks(std::ptrdiff_t count, Block&& block) {
  using One = std::integral_constant<int, 1>;
  if (count < kWide) {
    for (std::ptrdiff_t i = 0; i < count; ++i) block(i, One(), float());
    return;
  }
  std::ptrdiff_t i = 0;
  for (; i <= count - Count * kWide; i += Count * kWide) block(i, std::integral_constant<int, Count>(), Wide());
  for (; i <= count - kWide; i += kWide) block(i, One(), Wide());
  if (i < count) block(count - kWide, One(), Wide());
}

// The index within a period of `count` values.
inline std::ptrdiff_t Wrapped(std::ptrdiff_t i, std::ptrdiff_t count) {
  const std::ptrdiff_t r = i % count;
  return r < 0 ? r + count : r;
}

// A line of odd length: its period breaks the alternation of values and zeros, so that the zeros are written out.
void SynthesiseOddLine(float* line, std::ptrdiff_t n, const WaveletTaps& taps, float* work) {
  const std::ptrdiff_t k = n / 2;
  const std::ptrdiff_t before = kMaxWaveletTaps;
  float* const low = work + before;
  float* const high = low + n + before;
  std::fill(work, high + n, 0.0f);
  for (std::ptrdiff_t i = 0; i < k; ++i) {
    low[2 * i] = line[i];
    high[2 * i] = line[k + i];
  }
  for (std::ptrdiff_t i = 1; i <= before; ++i) {
    low[-i] = low[Wrapped(-i, n)];
    high[-i] = high[Wrapped(-i, n)];
  }
  std::fill(line, line + n, 0.0f);
  for (int t = 0; t < taps.count; ++t) {
    const float lowTap = taps.low[t];
    const float highTap = taps.high[t];
    const float* const l = low - t;
    const float* const h = high - t;
#pragma omp simd
    for (std::ptrdiff_t j = 0; j < n; ++j) line[j] += l[j] * lowTap + h[j] * highTap;
  }
}

inline float* TileRow(float* rows, std::ptrdiff_t y) {
  return rows + y * kTile;
}

// Rows first .. first + count - 1 of the tile into `rows`; columns that the tile lacks are 0.
void LoadRows(const ColumnTile& tile, std::ptrdiff_t first, std::ptrdiff_t count, float* rows) {
  const float* from = tile.corner + first * tile.stride;
  if (tile.columns == kTile) {
    for (std::ptrdiff_t y = 0; y < count; ++y, from += tile.stride) {
      std::memcpy(TileRow(rows, y), from, kTile * sizeof(float));
    }
    return;
  }
  for (std::ptrdiff_t y = 0; y < count; ++y, from += tile.stride) {
    std::copy(from, from + tile.columns, TileRow(rows, y));
    std::fill(TileRow(rows, y) + tile.columns, TileRow(rows, y) + kTile, 0.0f);
  }
}

inline void StoreRow(const ColumnTile& tile, std::ptrdiff_t y, const float* row) {
  float* const to = tile.corner + y * tile.stride;
  if (tile.columns == kTile)
    std::memcpy(to, row, kTile * sizeof(float));
  else
    std::copy(row, row + tile.columns, to);
}

void Scale(float* rows, std::ptrdiff_t count, std::ptrdiff_t left, std::ptrdiff_t right, float gain) {
  for (std::ptrdiff_t y = 0; y < count; ++y) {
    float* const row = TileRow(rows, y);
#pragma omp simd
    for (std::ptrdiff_t x = left; x < right; ++x) row[x] *= gain;
  }
}

void ScaleAbout(float* rows, std::ptrdiff_t count, std::ptrdiff_t right, float gain, float mid) {
  for (std::ptrdiff_t y = 0; y < count; ++y) {
    float* const row = TileRow(rows, y);
#pragma omp simd
    for (std::ptrdiff_t x = 0; x < right; ++x) row[x] = (row[x] - mid) * gain + mid;
  }
}

void ApplyGains(float* low, float* high, std::ptrdiff_t count, const BandGains& gains) {
  const std::ptrdiff_t split = std::clamp<std::ptrdiff_t>(gains.split, 0, kTile);
  // A gain of 1 does not even round the low band, on purpose: it stays as it is whatever `mid` is.
  if (gains.low != 1.0f) ScaleAbout(low, count, split, gains.low, gains.mid);
  if (gains.row != 1.0f) Scale(low, count, split, kTile, gains.row);
  if (gains.column != 1.0f) Scale(high, count, 0, split, gains.column);
  if (gains.diagonal != 1.0f) Scale(high, count, split, kTile, gains.diagonal);
}

// `rows` are the loaded rows of the tile, one after the other; `line` has room for a line and its work memory.
void SynthesiseOddColumns(const ColumnTile& tile, const WaveletTaps& taps, float* rows, float* line) {
  const std::ptrdiff_t n = tile.rows;
  for (std::ptrdiff_t x = 0; x < tile.columns; ++x) {
    for (std::ptrdiff_t y = 0; y < n; ++y) line[y] = TileRow(rows, y)[x];
    SynthesiseLine(line, n, taps, line + n);
    for (std::ptrdiff_t y = 0; y < n; ++y) TileRow(rows, y)[x] = line[y];
  }
  for (std::ptrdiff_t y = 0; y < n; ++y) StoreRow(tile, y, TileRow(rows, y));
}

}  // namespace

std::size_t WaveletLineWork(std::ptrdiff_t n) {
  return 2 * static_cast<std::size_t>(n + 2 * kMargin);
}

std::size_t WaveletTileWork(std::ptrdiff_t rows) {
  const auto line = static_cast<std::size_t>(rows) + WaveletLineWork(rows);
  return static_cast<std::size_t>((rows + 2 * kMargin) * kTile) + (rows % 2 != 0 ? line : 0);
}

void AnalyseLine(float* line, std::ptrdiff_t n, const WaveletTaps& taps, float* work) {
  const std::ptrdiff_t k = n / 2;
  if (k == 0) return;
  float* const even = work;
  float* const odd = work + k + kMargin;
#pragma omp simd
  for (std::ptrdiff_t i = 0; i < k; ++i) {
    even[i] = line[2 * i];
    odd[i] = line[2 * i + 1];
  }
  for (std::ptrdiff_t i = k; i < k + kMargin; ++i) {
    even[i] = line[2 * i % n];
    odd[i] = line[(2 * i + 1) % n];
  }
  const WaveletTaps own = taps;
  ForBlocks<kAnalysed>(k, [&](std::ptrdiff_t i, auto vectors, auto value) {
    AnalyseBlock<vectors, decltype(value)>(even + i, odd + i, 1, own, line + i, line + k + i);
  });
}

void SynthesiseLine(float* line, std::ptrdiff_t n, const WaveletTaps& taps, float* work) {
  if (n % 2 != 0) {
    SynthesiseOddLine(line, n, taps, work);
    return;
  }
  const std::ptrdiff_t k = n / 2;
  if (k == 0) return;
  float* const low = work + kMargin;
  float* const high = low + k + kMargin;
  std::copy(line, line + k, low);
  std::copy(line + k, line + n, high);
  for (std::ptrdiff_t i = 1; i <= kMargin; ++i) {
    low[-i] = line[Wrapped(-i, k)];
    high[-i] = line[k + Wrapped(-i, k)];
  }
  const WaveletTaps own = taps;
  ForBlocks<kSynthesised>(k, [&](std::ptrdiff_t i, auto vectors, auto value) {
    using V = decltype(value);
    V first[vectors], second[vectors];
    SynthesiseBlock(low + i, high + i, 1, own, first, second);
    constexpr std::ptrdiff_t kLength = sizeof(V) / sizeof(float);
    for (int b = 0; b < vectors; ++b) StoreInterleaved(line + 2 * (i + b * kLength), first[b], second[b]);
  });
}

void AnalyseColumns(const ColumnTile& tile, const WaveletTaps& taps, float* work) {
  const std::ptrdiff_t n = tile.rows;
  const std::ptrdiff_t k = n / 2;
  if (k == 0) return;
  LoadRows(tile, 0, n, work);
  for (std::ptrdiff_t y = n; y < n + taps.count; ++y) {
    std::copy(TileRow(work, y % n), TileRow(work, y % n) + kTile, TileRow(work, y));
  }
  const WaveletTaps own = taps;
  for (std::ptrdiff_t i = 0; i < k; ++i) {
    const float* const even = TileRow(work, 2 * i);
    float low[kTile];
    float high[kTile];
    ForBlocks<kAnalysed>(kTile, [&](std::ptrdiff_t x, auto vectors, auto value) {
      AnalyseBlock<vectors, decltype(value)>(even + x, even + kTile + x, 2 * kTile, own, low + x, high + x);
    });
    StoreRow(tile, i, low);
    StoreRow(tile, k + i, high);
  }
}

void SynthesiseColumns(const ColumnTile& tile, const WaveletTaps& taps, const BandGains& gains, float* work) {
  const std::ptrdiff_t n = tile.rows;
  const std::ptrdiff_t k = n / 2;
  if (n % 2 != 0) {
    LoadRows(tile, 0, n, work);
    ApplyGains(work, TileRow(work, k), k, gains);
    SynthesiseOddColumns(tile, taps, work, work + n * kTile);
    return;
  }
  if (k == 0) return;
  float* const low = TileRow(work, kMargin);
  float* const high = TileRow(low, k + kMargin);
  LoadRows(tile, 0, k, low);
  LoadRows(tile, k, k, high);
  ApplyGains(low, high, k, gains);
  for (std::ptrdiff_t i = 1; i < taps.count / 2; ++i) {
    for (float* const half : {low, high}) {
      const float* const from = TileRow(half, Wrapped(-i, k));
      std::copy(from, from + kTile, TileRow(half, -i));
    }
  }
  const WaveletTaps own = taps;
  for (std::ptrdiff_t i = 0; i < k; ++i) {
    const float* const l = TileRow(low, i);
    const float* const h = TileRow(high, i);
    float even[kTile];
    float odd[kTile];
    ForBlocks<kSynthesised>(kTile, [&](std::ptrdiff_t x, auto vectors, auto value) {
      using V = decltype(value);
      V first[vectors], second[vectors];
      SynthesiseBlock(l + x, h + x, kTile, own, first, second);
      std::memcpy(even + x, first, sizeof first);
      std::memcpy(odd + x, second, sizeof second);
    });
    StoreRow(tile, 2 * i, even);
    StoreRow(tile, 2 * i + 1, odd);
  }
}

}  // namespace qmr
