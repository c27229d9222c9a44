// Cyclic shift.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgScroll : public CVynImage {
 public:
  CImgScroll();
  ~CImgScroll() override;

  // Moves the content by `shift` pixels: right when `horizontal` is non-zero, else up (on purpose: the two directions
  // differ); negative shifts go the other way. What leaves one edge comes back at the other. This image has the size of
  // `source`, which may be this image; where the source has no pixel this image's stays. The reference points and the
  // centre are unset afterwards; levels stay. A null source does nothing.
  void Do(int shift, int horizontal, CVynImage* source, int bProgress);
};
