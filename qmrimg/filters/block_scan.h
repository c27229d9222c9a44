// Whole rows of a two-dimensional convolution, for the operations that go over an image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/kernels/block_rows.h"
#include "qmrimg/store/image.h"

namespace qmr {

// The image row that stands for row `y` of a plane of `height` rows in a two-dimensional window: mirrored about both
// end rows. `height` is at least 1.
int BlockSourceRow(std::int64_t y, int height);

// One thread's pass over a plane: the values of CFilterBlock::Convolve and ConvolveClamped, a row at a time, bit for
// bit (the sign of a 0 aside), with the same edge rules (columns clamped, rows mirrored about both end rows; near the
// left and right edges sums in double narrowed after each term). A scan keeps copies of the rows of its window, each
// made once when the rows are asked for in ascending order.
class BlockScan {
 public:
  // A window of `radius` (which is the matrix's own in all ordinary use; of matrices of another radius, the cells in
  // common count, as there) over columns left..right - 1, cut to the image. The image must outlive the scan and must
  // not change meanwhile; the matrices passed to Convolve are read during the call.
  BlockScan(const CImage& image, int plane, int radius, int left, int right);

  // Puts the window around row `y`. False, and empty rows from then on, when the image has no such row.
  bool MoveTo(int y);

  // The pixels of the window's centre row, columns left..right - 1; empty when there is no such row or column.
  std::span<const float> Centre() const;

  // out[i] = the convolution at column left + i. `out` has as many elements as Centre().
  void Convolve(CFilterMatrix& matrix, std::span<float> out);
  // With each pixel first limited to low..high.
  void ConvolveClamped(CFilterMatrix& matrix, float low, float high, std::span<float> out);

 private:
  // Copies of image rows first..last - 1, widened by the window's radius on both sides. Image row y is row
  // y % ringRows_ of the ring.
  struct Ring {
    std::vector<float> values;
    // One entry a row: no infinities and not-a-number.
    std::vector<unsigned char> finite;
    int first = 0;
    int last = 0;
  };

  template <class Prepare>
  void Fill(Ring& ring, Prepare prepare);
  // Puts the taps of the cells that matrix and window have in common into `taps_`; false when there are none.
  bool Gather(const Ring& ring, CFilterMatrix& matrix);

  const CImage& image_;
  int plane_;
  int radius_;
  int left_;
  int columns_ = 0;
  int ringRows_ = 0;
  std::size_t stride_ = 0;
  int y_ = -1;
  // Image rows of the window at `y_`, from the topmost, and the range they lie in.
  std::vector<int> window_;
  int firstRow_ = 0;
  int lastRow_ = 0;
  Ring plain_;
  Ring limited_;
  // What `limited_` is limited to.
  float low_ = 0.0f;
  float high_ = 0.0f;
  std::vector<BlockTap> taps_;
};

}  // namespace qmr
