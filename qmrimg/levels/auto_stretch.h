// Pixels rewritten by a scale and an offset a plane.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgAutoStretch : public CVynImage {
 public:
  CImgAutoStretch();
  ~CImgAutoStretch() override;

  // pixel = (source - offsetIn) * (W / weight * gain) + offsetOut, raw scale, one entry of each array a plane; W is
  // the largest of the first three weights, so `weight` always has three entries. Planes that this image lacks are
  // left out. `rect` null does nothing; what of it lies outside the images is left out.
  void DoStretch(CVynImage* source, double* gain, double* offsetIn, double* weight, double* offsetOut, tagRECT* rect);
};
