// Radial windows, for a transform of a picture with a bright middle.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgWindowing : public CVynImage {
 public:
  CImgWindowing();
  CImgWindowing(const CImgWindowing& other);
  ~CImgWindowing() override;
  CImgWindowing& operator=(const CImgWindowing& other);

  // Pixels of `src` times a weight of their distance r from (width / 2, height / 2) of `src`, in whole pixels; raw
  // scale, so that the window falls to 0.0 and not to the level minimum. `kind` 0 is the raised cosine
  // 0.5 cos(pi r / radius) + 0.5, 0.0 from `radius` (in pixels) on; any other kind copies. The source may be this
  // image. What it lacks in width, height or planes stays as it is. 1; 0 without a source.
  int Do(int kind, double radius, CVynImage* src, int bProgress);
};
