// The rows that one thread keeps while it develops a honeycomb mosaic downward: each row is filled once and kept until
// the rows below it are done.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <span>

#include "qmrimg/levels/honeycomb_sites.h"
#include "qmrimg/raw/kernels/honeycomb_rows.h"

namespace qmr {

// The row of a mosaic of `height` rows (8 or more) that stands for row `row`, which may lie up to some rows outside of
// it. Above the first row of red and blue sites, which `yPhase` numbers, its mirror image.
//
// Below the last row one of the last four, by turns from the second of them, on purpose: pictures with fewer than four
// rows cut at the bottom depend on it. It can lie in a row of the other kind, so that what stands between the sites
// comes into those rows of the picture.
int HoneycombSourceRow(int row, int height, int yPhase);

class HoneycombBand {
 public:
  // Rows above and below that a developed row reads.
  static constexpr int kReach = 3;

  // For mosaics of that width; raises std::bad_alloc.
  HoneycombBand(int width, HoneycombLayout layout, HoneycombPairs pairs, bool isMono);

  int Width() const { return width_; }
  // Where a quarter of the mosaic row `row` is to be stored; the last eight rows are kept. Only the quarters that hold
  // sites of the row are needed.
  std::span<float> Quarter(int row, int quarter);
  // To be called when a row's quarters are stored: continues them beyond both ends of the row by their mirror image.
  void CloseRow(int row);

  // Luminance and colours of a row about which the mosaic rows are stored. The last four are kept.
  void Develop(int row);

  // The result of a developed row, columns left, left + 1, .... Colours need its neighbours, too.
  void CopyLuminance(int row, int left, std::span<float> out) const;
  void Synthesize(int row);
  // One plane of the row that was synthesized last.
  void CopyColour(int plane, int left, std::span<float> out) const;

 private:
  struct Free {
    void operator()(std::byte* p) const { ::operator delete[](p, std::align_val_t{64}); }
  };

  const float* At(int row, int column) const { return mosaic_[row & 7].At(column); }
  void DevelopGap(int row, int quarter, const HoneycombQuarter& out) const;
  void DevelopColour(int row, int quarter, const HoneycombQuarter& out) const;
  void DevelopGreen(int row, int quarter, const HoneycombQuarter& out) const;

  int width_;
  std::size_t count_;
  HoneycombLayout layout_;
  HoneycombPairs pairs_;
  std::unique_ptr<std::byte[], Free> memory_;
  QuarterRow<float> mosaic_[8];
  QuarterRow<float> luminance_[4];
  QuarterRow<double> red_[4];
  QuarterRow<double> blue_[4];
  QuarterRow<float> result_[3];
};

}  // namespace qmr
