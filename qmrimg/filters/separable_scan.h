// Whole rows of a separable convolution, for the operations that go over an image.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "qmrimg/store/image.h"

namespace qmr {

// One thread's downward scan over a plane: the values of CFilterProc::Calc, a row at a time. A scan keeps a ring of
// horizontally filtered rows of its own, filled afresh at its first row, so its results depend on the image alone.
// Rows may be asked for in any order; ascending order without gaps is fast. Taps of 0 at both ends of the kernel cost
// nothing but where they meet infinities or not-a-number, whose product with 0 is not a number.
class SeparableScan {
 public:
  // Columns left..right - 1 are filtered; they are cut to the image. Rows from `bottom` on are not computed ahead.
  // The image must outlive the scan and must not change meanwhile.
  SeparableScan(const CImage& image, int plane, std::span<const float> kernel, int left, int right, int bottom);

  // The filtered columns of row `y`, valid until the next call. Empty when the image has no such row, plane or
  // column.
  std::span<const float> Row(int y);

 private:
  void FillRing(std::int64_t first, std::int64_t last);
  std::size_t RingSlot(std::int64_t y) const;
  float* RingRow(std::int64_t y) { return ring_.data() + RingSlot(y) * stride_; }
  // The kernel without its first and last `skipped` taps.
  std::span<const double> Taps(int skipped) const;

  const CImage& image_;
  int plane_;
  int radius_;
  int left_;
  int columns_ = 0;
  int bottom_;
  std::size_t stride_ = 0;
  std::vector<double> kernel_;
  // So many taps at either end of the kernel are 0; the centre is not counted.
  int zeros_ = 0;
  std::vector<double> wide_;
  std::vector<float> ring_;
  // One entry a row of the ring: no infinities and not-a-number. Kept where there are taps of 0.
  std::vector<unsigned char> finite_;
  std::vector<float> out_;
  std::vector<const float*> window_;
  int ringRows_ = 0;
  // Rows that the ring holds; row y stands for the image row of that number after mirroring.
  std::int64_t ringFirst_ = 0;
  std::int64_t ringLast_ = 0;
  // Rows that `out_` holds.
  int outFirst_ = 0;
  int outCount_ = 0;
};

}  // namespace qmr
