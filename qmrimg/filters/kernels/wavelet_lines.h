// One level of a periodic wavelet transform, along a line and along many columns at a time. All sums are float, over
// the taps in ascending order: the same bits from lines and columns, whatever the vector width.
#pragma once

#include <cstddef>

namespace qmr {

inline constexpr int kMaxWaveletTaps = 20;

// A pair of filters for one direction; what lies beyond `count`, 0 to kMaxWaveletTaps and even, is 0.
struct WaveletTaps {
  int count = 0;
  float low[kMaxWaveletTaps] = {};
  float high[kMaxWaveletTaps] = {};
};

// Floats of work memory that the two line functions need for `n` values.
std::size_t WaveletLineWork(std::ptrdiff_t n);

// line[i] = sum of line[(2i + t) mod n] * low[t] and line[k + i] the same with high, k = n / 2. The last value of an
// odd line stays and is lost to the inverse.
void AnalyseLine(float* line, std::ptrdiff_t n, const WaveletTaps& taps, float* work);

// The two halves, each with a zero after every value, convolved with low and high and added:
// line[j] = sum of (lows[(j - t) mod n] * low[t] + highs[(j - t) mod n] * high[t]).
void SynthesiseLine(float* line, std::ptrdiff_t n, const WaveletTaps& taps, float* work);

// Columns that are transformed together: a few cache lines of each row, and few enough that a buffer of thousands of
// such rows stays in the cache of its core.
inline constexpr std::ptrdiff_t kWaveletColumns = 64;

// `columns`, at most kWaveletColumns, columns of `rows` values; `stride` floats from row to row.
struct ColumnTile {
  float* corner;
  std::ptrdiff_t stride;
  std::ptrdiff_t columns;
  std::ptrdiff_t rows;
};

// What the quarters of a level are multiplied by before synthesis. The low band is scaled about `mid`; a gain of
// exactly 1 leaves it as it is. Columns from `split` on, counted in the tile, belong to the right quarters.
struct BandGains {
  float mid;
  float low;
  float row;
  float column;
  float diagonal;
  std::ptrdiff_t split;
};

// Floats of work memory that the two tile functions need; it should start on a 64-byte boundary.
std::size_t WaveletTileWork(std::ptrdiff_t rows);

void AnalyseColumns(const ColumnTile& tile, const WaveletTaps& taps, float* work);
void SynthesiseColumns(const ColumnTile& tile, const WaveletTaps& taps, const BandGains& gains, float* work);

}  // namespace qmr
