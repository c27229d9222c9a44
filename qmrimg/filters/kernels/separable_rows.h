// The two passes of the separable convolver. Every pixel is one sum in double, over the taps in ascending order,
// rounded to float at the end: the same bits whatever the vector width.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qmr {

// Output rows that the vertical pass makes at a time, so that each row it reads serves several of them.
inline constexpr int kRowsAtOnce = 4;
// Rows handed to the passes have a multiple of this many columns.
inline constexpr std::size_t kColumnsAtOnce = 64;

// The image row that stands for row `y` of a plane of `height` rows: mirrored about row 0 at the top, with the last
// row repeated at the bottom, periodic over 2 * height. `height` is at least 1.
int SeparableSourceRow(std::int64_t y, int height);

// Columns left - radius .. left - radius + out.size() - 1 of a source row as doubles, columns beyond the row
// clamped to it. `src` is not empty.
void WidenRow(std::span<const float> src, int left, int radius, std::span<double> out);

// out[x] = sum of src[x + k] * kernel[k]; `src` has kernel.size() - 1 values more than `out`.
void FilterAlongRow(const double* src, std::span<const double> kernel, std::span<float> out);

// out[r][x] = sum of rows[r + k][x] * kernel[k] for r in 0 .. count - 1, `count` at most kRowsAtOnce.
void FilterAcrossRows(const float* const* rows, std::span<const double> kernel, int count, std::size_t width,
                      float* const* out);

}  // namespace qmr
