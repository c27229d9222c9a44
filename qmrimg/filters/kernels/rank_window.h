// Rank selection of large windows: one sorting of a tile, and a window that slides over its order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "qmrimg/filters/kernels/rank_disc.h"

namespace qmr {

// Works on a tile of output pixels. All values of the tile and its margins are sorted once and stand for their place in
// that order, so that the window is a set of bits; it slides pixel by pixel, and a pivot with the count of bits below
// it follows the wanted element (Huang, Yang and Tang 1979, on places instead of gray levels).
class RankWindow {
 public:
  // Places of the tile that belong to the image; the window holds nothing elsewhere.
  struct Inside {
    int left;
    int top;
    int right;
    int bottom;
  };

  // Tiles of at most `rows` x `columns` output pixels. The ranks may be constants as well.
  RankWindow(const RankDisc& disc, std::span<const int> ranks, int rows, int columns);

  int Rows() const { return rows_; }
  int Columns() const { return columns_; }
  // The tile with its margins of disc.Reach() pixels, to be filled before Run.
  std::span<float> Row(int row) { return {values_.data() + static_cast<std::size_t>(row) * pitch_, pitch_}; }

  // out[k] + row * stride takes rank k of an output row, `columns` values; 0.0 where the window has no such element.
  void Run(int rows, int columns, const Inside& inside, float* const* out, std::size_t stride);

 private:
  struct Pivot {
    std::size_t word;
    std::int64_t below;
  };
  // Cells that come in and go out when the window has moved by one, from its new centre.
  struct Move {
    std::vector<std::ptrdiff_t> in;
    std::vector<std::ptrdiff_t> out;
  };

  void Order(int rows, int columns, const Inside& inside);
  void Slide(std::ptrdiff_t centre, const Move& move);
  float Select(std::size_t k);

  RankDisc disc_;
  std::vector<int> ranks_;
  int rows_;
  int columns_;
  std::size_t pitch_;
  std::vector<float> values_;
  // Places in the order; pixels outside the image share one beyond all others.
  std::vector<std::uint32_t> places_;
  std::vector<std::uint64_t> sorted_;
  std::vector<std::uint64_t> spare_;
  std::vector<std::uint64_t> words_;
  std::uint32_t outside_ = 0;
  std::int64_t present_ = 0;
  std::vector<Pivot> pivots_;
  Move right_;
  Move left_;
  Move down_;
};

}  // namespace qmr
