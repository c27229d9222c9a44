// The shapes of the fixed patterns, for the kernels over them. What is written once for a pixel runs along rows as
// well: inside the image the steps are constants.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "qmrimg/filters/kernels/pattern_rows.h"

// Loops vectorise only if all that they call is inlined, whatever the optimisation level.
#define QMR_INLINE [[gnu::always_inline]] inline

namespace qmr::pattern {

// Distances to the columns -2..2 of the pattern, after reflection.
using Steps = std::array<std::ptrdiff_t, 5>;
inline constexpr Steps kInside = {-2, -1, 0, 1, 2};

// A neighbour: its entry in `rows`, its column in Steps.
struct Cell {
  std::size_t row;
  std::size_t column;
};

// Neighbours in row order.
struct Plus {
  static constexpr int kRadius = 1;
  static constexpr std::array<Cell, 4> kNeighbours = {{{0, 2}, {1, 1}, {1, 3}, {2, 2}}};
};
struct Square {
  static constexpr int kRadius = 1;
  static constexpr std::array<Cell, 8> kNeighbours = {{{0, 1}, {0, 2}, {0, 3}, {1, 1}, {1, 3}, {2, 1}, {2, 2}, {2, 3}}};
};
struct Disc {
  static constexpr int kRadius = 2;
  static constexpr std::array<Cell, 20> kNeighbours = {{{0, 1}, {0, 2}, {0, 3}, {1, 0}, {1, 1}, {1, 2}, {1, 3},
                                                        {1, 4}, {2, 0}, {2, 1}, {2, 3}, {2, 4}, {3, 0}, {3, 1},
                                                        {3, 2}, {3, 3}, {3, 4}, {4, 1}, {4, 2}, {4, 3}}};
};

template <class Shape>
inline constexpr int kNeighbourCount = static_cast<int>(Shape::kNeighbours.size());
template <class Shape>
inline constexpr int kPixelCount = kNeighbourCount<Shape> + 1;

template <class Shape>
using NeighbourIndices = std::make_index_sequence<Shape::kNeighbours.size()>;

// Calls `work` with the pattern's shape. The pixel alone has none: callers settle it before.
template <class Work>
auto WithShape(Pattern pattern, Work&& work) {
  switch (pattern) {
    case Pattern::kPlus:
      return work(Plus{});
    case Pattern::kSquare:
      return work(Square{});
    default:
      return work(Disc{});
  }
}

// A pixel's offset from the address of column `x`, which brings it into the image, and its steps.
struct Place {
  Place(int x, int width) {
    const std::ptrdiff_t last = std::max(width, 1) - 1;
    const std::ptrdiff_t column = std::clamp<std::ptrdiff_t>(x, 0, last);
    at = column - x;
    steps = {column <= 1 ? 2 : -2, column < 1 ? 1 : -1, 0, column >= last ? -1 : 1, column >= last - 1 ? -2 : 2};
    for (std::ptrdiff_t& step : steps) step = std::clamp<std::ptrdiff_t>(column + step, 0, last) - column;
  }
  std::ptrdiff_t at;
  Steps steps;
};

// Column `x` of all rows, given their column 0.
struct RowsAt {
  QMR_INLINE RowsAt(const float* const* rows, int radius, std::ptrdiff_t x) {
    for (int r = 0; r <= 2 * radius; ++r) at[r] = rows[r] + x;
  }
  const float* at[kPatternMaxRows] = {};
};

// `edge(x)` gives the pixels whose pattern leaves the image, `inside(rows, first, count, to)` writes the others; its
// rows and `to` are those of column `first`.
template <class Edge, class Inside>
void AlongRow(const PatternRow& row, int radius, Edge&& edge, Inside&& inside) {
  if (row.right <= row.left) return;
  const int first = std::clamp(radius, row.left, row.right);
  const int last = std::clamp(row.width - radius, first, row.right);
  for (int x = row.left; x < first; ++x) row.to[x - row.left] = edge(x);
  if (last > first) inside(RowsAt(row.rows, radius, first).at, first, last - first, row.to + (first - row.left));
  for (int x = last; x < row.right; ++x) row.to[x - row.left] = edge(x);
}

// The pattern is the pixel alone.
inline void CopyPixels(const PatternRow& row) {
  std::copy(row.rows[0] + row.left, row.rows[0] + row.right, row.to);
}

}  // namespace qmr::pattern
