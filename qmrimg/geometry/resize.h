// Another canvas, without resampling.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgResize : public CVynImage {
 public:
  CImgResize();
  ~CImgResize() override;

  // Makes this image width x height pixels with `source` on it, as it is: where the canvas is smaller the source is
  // cut, where it is larger the rest takes the fill. `anchor` says where the source lies,
  //
  //   0 1 2    0 at the top left, 4 in the middle, 8 at the bottom right; another number is 0. An odd pixel over goes
  //   3 4 5    right of and below a source in the middle.
  //   6 7 8
  //
  // `fillColor` has an entry a plane on the 256-scale of this image's plane 0, for all planes on purpose; null stands
  // for zeros. The reference points and the centre are unset afterwards; levels stay. The source may be this image. 0,
  // with nothing changed, for a null source or a size that is not positive; 0 when memory lacks.
  int Do(int width, int height, int anchor, float* const fillColor, CVynImage* source, int bProgress);
};
