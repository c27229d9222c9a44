// The rows that one thread keeps while it develops a mosaic downward.
//
// The development is defined on bands of eight mosaic rows, one band for each pair of result rows. All that a pair
// reads of its band is the same in every band that holds the row, so each row is interpolated once and kept until
// the rows below it are done.
#pragma once

#include <cstddef>
#include <memory>
#include <new>

#include "qmrimg/raw/kernels/bayer_rows.h"
#include "qmrimg/raw/kernels/bayer_sites.h"

namespace qmr {

class BayerBand {
 public:
  // For mosaics of that width; raises std::bad_alloc.
  BayerBand(int width, BayerLayout layout, bool isMono);

  // Where the mosaic row `row` is to be stored, by column parity. The last four rows are kept.
  float* Half(int row, int parity) { return mosaic_[row & 3][parity]; }
  // Entries of a half, those of the shorter one rounded up.
  std::size_t Count() const { return count_; }
  int Width() const { return width_; }

  // Diagonal means of a row whose neighbour rows are stored.
  void AddDiagonals(int row);
  // Luminance and colours of a row whose diagonal means and those of both neighbours are there. Three are kept.
  void AddSites(int row);

  // The result of a row in one plane, columns left, left + 1, ...; needs the sites of the row and of its neighbours.
  void Synthesize(int row, int plane, int left, std::span<float> out);
  // The luminance of a row as the result.
  void CopyLuminance(int row, int left, std::span<float> out) const;

 private:
  struct Free {
    void operator()(std::byte* p) const { ::operator delete[](p, std::align_val_t{64}); }
  };

  SplitRow Mosaic(int row) const { return {{mosaic_[row & 3][0], mosaic_[row & 3][1]}}; }

  int width_;
  std::size_t count_;
  BayerLayout layout_;
  bool isMono_;
  std::unique_ptr<std::byte[], Free> memory_;
  float* mosaic_[4][2];
  float* diagonals_[4];
  float* luminance_[4][2];
  double* difference_[4][3][2];
  float* scratch_[2];
};

}  // namespace qmr
