// A rectangle cut out.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgCrop : public CVynImage {
 public:
  CImgCrop();
  ~CImgCrop() override;

  // Makes this image the pixels of `source` in `rect` (columns left..right - 1, rows top..bottom - 1), cut to the
  // source. The reference points and the centre are unset afterwards; levels stay. The source may be this image. 0,
  // with nothing changed, for a null source or when nothing of the rectangle lies on it; 0 when memory lacks.
  int Do(CRect rect, CVynImage* source, int bProgress);
};
