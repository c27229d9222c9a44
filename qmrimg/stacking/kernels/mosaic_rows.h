// Rows of two images on a canvas, and what becomes of a pixel that both cover.
#pragma once

#include "qmrimg/image/bilinear.h"
#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/kernels/transformed_row.h"
#include "qmrimg/image/row_table.h"
#include "qmrimg/stacking/kernels/column_cells.h"

namespace qmr {

constexpr int kMostMosaicPlanes = 3;

// An image as the canvas reads it: bilinear, raw or on its own 256-scale, `fill` where it does not reach. The values
// are those of CVynImage's readers for moved images.
class MosaicImage {
 public:
  // For columns left..left + count - 1 of the canvas. `planes` 3 or 1 is what rows are asked for, `colours` whether the
  // image has three planes. Needs memory: std::bad_alloc.
  MosaicImage(const RowTable& rows, bool colours, const Placement& placement, bool to256,
              const RowLevels (&levels)[kMostMosaicPlanes], float fill, int planes, int left, int count);

  // Row y of the canvas into out[0], of three planes into all of out: a monochrome image is the same on all, and of a
  // colour image a single plane is the brightness. `scratch` has room for two rows. Gives the columns that the image
  // covers, counted from `left`.
  ColumnRun Row(int y, float* const* out, float* scratch) const;

 private:
  // Covered columns of the first `planes` planes; the others stay.
  ColumnRun SampleShifted(int y, int planes, float* const* out) const;
  ColumnRun SampleTurned(int y, int planes, float* const* out) const;

  const RowTable& rows_;
  const bool colours_;
  const Placement placement_;
  const bool to256_;
  RowLevels levels_[kMostMosaicPlanes];
  const float fill_;
  const int planes_;
  const int left_;
  const int count_;
  // Of an image that is not turned.
  ColumnRun columns_ = {0, 0};
  ColumnCells cells_;
};

// What a canvas takes where both images cover it.
enum class MosaicOverlap { kAddition, kAdditionButMask, kBrighter, kDarker, kBase };

struct MosaicMask {
  double colour[kMostMosaicPlanes];
  double tolerance;
};

// a becomes what the canvas takes of a and b, count columns on `planes` planes, 1 or 3.
void ChooseRow(MosaicOverlap overlap, const MosaicMask& mask, int planes, float* const* a, const float* const* b,
               int count);

// a becomes the mean of both, and with levels goes from the 256-scale back to raw.
void MeanOfRows(float* a, const float* b, int count, const RowLevels* levels);
void RowToRaw(float* row, int count, const RowLevels& levels);

}  // namespace qmr
