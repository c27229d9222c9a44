// Mirror images.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgFlip : public CVynImage {
 public:
  CImgFlip();
  ~CImgFlip() override;

  // `horizontal` 0: top and bottom change places; 1: left and right do; another value leaves the pixels alone. This
  // image has the size of `source`, which may be this image; where the source has no pixel this image's stays.
  // Levels, reference points and centre stay. A null source does nothing.
  void Do(int horizontal, CVynImage* source, int bProgress);
};
