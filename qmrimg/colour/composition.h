// What the compositions of frames share.
#pragma once

#include "qmrimg/colour/kernels/composition_rows.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// A frame and how it lies: the result at (x, y) reads it at (x - dx, y - dy), in pixels, turned by `angle` degrees.
struct ComposedFrame {
  CVynImage* image;
  double dx;
  double dy;
  double angle;
};

struct Turn {
  double sine;
  double cosine;
};
Turn TurnOf(double degrees);

struct Levels {
  double min;
  double max;
};
Levels LevelsOf(const CVynImage& image, int plane);
Levels MeanLevels(const Levels& a, const Levels& b);

struct ComposedRect {
  int left;
  int top;
  int right;
  int bottom;
};
ComposedRect ClampRect(const CVynImage& target, const CRect* rect);

// What plane `plane` of a result is read from: a monochrome frame, or one of two planes, gives its plane 0.
int PlaneOf(const CVynImage& frame, int plane);

// One plane of a result and the plane of a frame that it is read from; without a frame it stays as it is.
struct ComposedPlane {
  ComposedFrame frame;
  int plane;
};

// Sets the address of column rect.left of row y in the first three planes; the result is the width of the rectangle, 0
// when there is nothing to write.
int RowsOf(CVynImage& target, const ComposedRect& rect, int y, float* (&rows)[kRgbPlanes]);

// Fills the rectangle of the first three planes from their frames, in raw scale and with 0.0 outside of a frame, and
// advances the target's report by one unit a row. `finish` may change the rows of each line afterwards. No frame
// may be the target.
void ComposeRows(CVynImage& target, const ComposedRect& rect, const ComposedPlane (&planes)[kRgbPlanes],
                 int useImageCenter, int method, FunctionRef<void(RgbRows rows, int width)> finish);

// Rows of a frame on the 256-scale, bit for bit what GetPixelRgb256f gives with a fill of 0.0. Threads may share one;
// the frame must not change meanwhile.
class RgbSampler {
 public:
  RgbSampler(const ComposedFrame& frame, int useImageCenter, double scale);
  RgbSampler(const RgbSampler&) = delete;
  RgbSampler& operator=(const RgbSampler&) = delete;
  // Columns left..left + width - 1 of row y of the result.
  void Row(int left, int y, int width, RgbRows out) const;

 private:
  const RowTable rows_;
  int planes_;
  Placement placement_;
  RowLevels levels_[kRgbPlanes];
};

}  // namespace qmr
