// The frames of a stack as rows of the destination.
#pragma once

#include <cstdint>

#include "qmrimg/geometry/interp.h"

namespace qmr {

// How a frame lies on the destination: the destination at (x, y) reads the frame at (x - shiftX, y - shiftY), turned
// by `angle` degrees about the frame's StdCtr, or its middle when useImageCenter is 0.
struct FramePlacement {
  double shiftX = 0.0;
  double shiftY = 0.0;
  double angle = 0.0;
  int useImageCenter = 1;
};

// Reads one frame row by row onto a destination of `width` columns and `planes` planes. One object a worker; rows are
// fastest in ascending order. A monochrome frame, or one of fewer planes, gives its plane 0 for every plane.
class QMR_API FrameSampler {
 public:
  FrameSampler(int method, CVynImage* frame, const FramePlacement& placement, int width, int planes);

  // Destination row y: `planes` lines of `width` samples in raw scale, 0.0 where the frame does not reach. `valid`,
  // `width` flags that hold for all planes, may be null.
  void Row(int y, float* const* lines, std::uint8_t* valid);
  // The same, one plane after the other, with a flag for each value.
  void Row(int y, double* values, int* valid);

 private:
  CInterp interp_;
  double shiftY_;
};

}  // namespace qmr
