// What the composites of CImgComposit share.
#pragma once

#include <optional>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/stacking/kernels/composit_rows.h"

namespace qmr {

constexpr double kPi = 3.141592653589793;

// Image B, or a copy of it when it is the object that the composite writes.
class SourceB {
 public:
  SourceB(CVynImage* b, const CVynImage* object) : image_(b) {
    if (b != object) return;
    copy_.emplace(*b);
    image_ = &*copy_;
  }
  CVynImage* Get() { return image_; }

 private:
  std::optional<CVynImage> copy_;
  CVynImage* image_;
};

// The row routine for a placement: 0 copied, 1 shifted, 2 turned rows.
int CompositShiftType(double shiftX, double shiftY, double angle);
int CompositMessage(int messageId);

// A composite of rows: A's pixels and lines of B by the mode table into the object.
class CompositRun {
 public:
  CompositRun(CVynImage* object, const CVynImage& a, int mode, const CompositRule& rule, int to256, const CRect* rect);

  int Left() const { return left_; }
  int Columns() const { return right_ - left_; }
  // How B is wanted: all planes, -1, or the one line 0.
  int Plane() const { return colour_ ? -1 : 0; }
  int To256() const { return to256_; }

  // Runs `range(first, last)` once a thread, with a report of all rows around it.
  void Run(int bProgress, int messageId, FunctionRef<void(int, int)> range);
  // The rows of one thread; `lineOfB(y, lines)` fills Columns() pixels of one or three lines.
  void Rows(int first, int last, FunctionRef<void(int, float* const*)> lineOfB);

 private:
  CVynImage* object_;
  const CVynImage& a_;
  int mode_;
  CompositRule rule_;
  int to256_;
  bool colour_;
  CompositLevels levels_[3];
  int left_, top_, right_, bottom_;
};

}  // namespace qmr
