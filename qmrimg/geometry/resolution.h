// Resampling to a new size.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Makes this image width x height pixels by sampling `source` at (column * old width / width, row * old height /
// height): pixel 0 stays in its place and the last pixels lie a step before the old edge. Samples are points, not means
// over an area: a strong reduction of fine detail aliases (bin or blur first).
//
// The old size is that of this image on entry, on purpose, which the source must have; a smaller source counts as far
// as it reaches. The reference points and the centre are unset afterwards; levels stay. The source may be this image.
// Results are 1; 0, with nothing changed, for a null source or a size that is not positive; 0 when memory lacks.
class QMR_API CImgResolution : public CVynImage {
 public:
  CImgResolution();
  ~CImgResolution() override;

  // The same as Bilinear.
  int Do(CVynImage* source, int width, int height, int bProgress);
  // Two by two pixels, in float. Beyond the last column and row it extrapolates from the last two.
  int Bilinear(CVynImage* source, int width, int height, int bProgress);
  // Four by four pixels in double with the kernel 1 - 2.9 t^2 + 1.9 t^3 below 1 and 0.4 - 0.8 t + 0.5 t^2 - 0.1 t^3
  // below 2 (Keys 1981, a = -0.1), divided by the sum of the weights. Beyond the right and lower edge it reads column
  // and row 0.
  int Bicubic(CVynImage* source, int width, int height, int bProgress);
  // By a method of CInterp (0 bilinear, 1 bicubic, 2 Lanczos2, 3 Lanczos3, 4 nearest neighbour; another gives 0.0).
  // Beyond the edges the border repeats.
  int DoChange(CVynImage* source, int width, int height, int method, int bProgress);
};
