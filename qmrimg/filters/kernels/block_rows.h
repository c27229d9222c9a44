// Sums of a two-dimensional kernel along one output row. Every pixel has its own sum over the taps in the given order:
// the same bits whatever the vector width.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qmr {

// One tap: the pixel that meets it at column 0 of the output, followed by those of the further columns, and its
// weight.
struct BlockTap {
  const float* pixels;
  float weight;
};

// So many floats behind the last pixel of a tap may be read; what they hold plays no part.
inline constexpr std::size_t kBlockSlack = 128;

// Columns start .. start + out.size() - 1 of a row, columns beyond the row clamped to it. `src` is not empty.
void PadRow(std::span<const float> src, std::int64_t start, std::span<float> out);

// Without infinities and not-a-number.
bool AllFinite(std::span<const float> row);

// out[x] = sum of pixels[x] * weight over the taps, in float from 0, for x in first .. last - 1.
void SumTaps(std::span<const BlockTap> taps, std::size_t first, std::size_t last, float* out);

// The same with each term formed and added in double and the sum rounded to float after it.
void SumTapsRounded(std::span<const BlockTap> taps, std::size_t first, std::size_t last, float* out);

}  // namespace qmr
