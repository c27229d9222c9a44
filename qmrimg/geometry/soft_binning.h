// Sums of pixel blocks.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgSoftBinning : public CVynImage {
 public:
  CImgSoftBinning();
  ~CImgSoftBinning() override;

  // Makes each pixel the sum of binX x binY pixels of `source`, in float, not divided: the level of a 2 x 2 binning is
  // four times as high. `roundUp` non-zero keeps the incomplete blocks at the right and lower edge, whose sums have
  // fewer pixels; 0 leaves them out. `scaleLevels` non-zero multiplies this image's levels by binX * binY, so that it
  // looks as before. This image has the size of `source` on entry; a smaller source counts as far as it reaches. The
  // reference points and the centre are unset afterwards. The source may be this image. 0, with nothing changed, for a
  // null source, a block size below 1 or when no block is left; 0 when memory lacks.
  int Do(int binX, int binY, int roundUp, int scaleLevels, CVynImage* source, int bProgress);
};
