// Rank selection of small windows: minima and maxima run across pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "qmrimg/filters/kernels/rank_disc.h"

namespace qmr {

// A program of comparators that gives elements of the sorted window for a block of columns in several neighbouring
// rows at once. What the windows of the rows have in common is sorted once and cut to the elements that can still
// become the answer; then each row's own cells are merged in. Equal parts at different columns are made once, too,
// and read again at a shift (after Adams, Fast Median Filters using Separable Sorting Networks, ACM Transactions on
// Graphics 40, 2021; of several ranks and a disc instead of the median of a square). All merging is Batcher's odd-even
// merge (Knuth, The Art of Computer Programming 3, 5.3.4), without the comparators whose results nobody needs.
//
// Not for not-a-number; of a negative and a positive zero one sign may be lost. What a pixel gets depends on its
// window and on its row's place in the program, never on its column.
class RankNetwork {
 public:
  // Columns of a block.
  static constexpr int kColumns = 128;
  // So many columns beyond the last window may be read; what they hold plays no part.
  static constexpr int kSlack = 16;
  // Source rows of a program at most.
  static constexpr int kMaxRows = 64;

  // `ranks` lie in 0 .. disc.Count() - 1. `rows` is a power of two, and all source rows are at most kMaxRows.
  RankNetwork(const RankDisc& disc, std::span<const int> ranks, int rows);

  int Rows() const { return rows_; }
  int SourceRows() const { return sourceRows_; }
  // Minima and maxima a pixel.
  double Work() const { return work_; }
  std::size_t ScratchFloats() const { return scratchFloats_; }

  // source[i], i < SourceRows(), points at the block's first column in the row i - disc.Reach() from the first output
  // row; disc.Reach() columns before it, and as many and kSlack after the block, are readable. out[v * ranks + k] takes
  // rank k of row v, kColumns values. `scratch` starts as zeros.
  void Run(const float* const* source, float* const* out, float* scratch) const;

 private:
  enum class Kind : std::uint8_t { kBoth, kLow, kHigh };
  // Floats at `offset` in the scratch memory (base 0) or from the block's first column in source row base - 1.
  struct Place {
    std::int32_t base;
    std::int32_t offset;
  };
  // `count` smaller and larger values of a and b, to places in the scratch memory.
  struct Step {
    Kind kind;
    std::int32_t count;
    Place a;
    Place b;
    std::int32_t low;
    std::int32_t high;
  };

  friend class RankProgram;

  int rows_;
  int sourceRows_;
  double work_ = 0.0;
  std::size_t scratchFloats_ = 0;
  std::vector<Step> steps_;
  std::vector<Place> results_;
};

}  // namespace qmr
