// Rows of an intermediate result in the window of a square kernel, for filters that chain neighbourhood stages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/kernels/block_rows.h"

namespace qmr {

// The 2 * radius + 1 rows around a row, each with its end pixels repeated `radius` times beyond both ends, and for
// each row and each tile of columns whether a window in that tile meets anything but the `rest` value. Row numbers
// may be negative or beyond an image; one thread's.
class WindowRows {
 public:
  static constexpr int kTile = 64;

  WindowRows(int width, int radius, float rest);

  // Columns 0..width - 1 of row `y`, which takes the place of row y - (2 * radius + 1).
  std::span<float> Row(std::int64_t y);
  // To be called when columns first..last - 1 of the row are written; the others play no part.
  void Pad(std::int64_t y, int first, int last);
  // The same for the tiles, after Pad.
  void Flag(std::int64_t y, int first, int last);

  // Whether any row has something but rest in reach of the tile of column `x`.
  bool Differs(int x) const;
  // The first column after `x`, at most `last`, at which a tile begins that differs in other rows than that of `x`.
  int SameUntil(int x, int last) const;

  // The terms of `kernel`, of the radius given, on the window around row `y`; only those of rows that differ in the
  // tile of `x`, or all when `x` is negative.
  void Gather(CFilterMatrix& kernel, std::int64_t y, int x, std::vector<BlockTap>& taps) const;

 private:
  std::size_t Slot(std::int64_t y) const;
  std::span<const unsigned char> Flags(int x) const;

  int width_;
  int radius_;
  float rest_;
  std::size_t count_;
  std::size_t stride_;
  std::vector<float> values_;
  // One entry a row, tile after tile.
  std::vector<unsigned char> flags_;
};

}  // namespace qmr
