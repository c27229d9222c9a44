// Colour strength in the Lab space.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgLabColorEnhance : public CVynImage {
 public:
  CImgLabColorEnhance();
  CImgLabColorEnhance(const CImgLabColorEnhance& src);
  ~CImgLabColorEnhance() override;
  CImgLabColorEnhance& operator=(const CImgLabColorEnhance& src);

  // Takes planes L (0..100), a and b, as MakeLabPlane gives them, multiplies a by `aPlus` where it is not below 0 and
  // by `aMinus` where it is, b likewise, and stores red, green and blue in the levels of this image: 0 at LevelMin, 1
  // at LevelMax, no value below. Nothing happens on an image of fewer than three planes; a fourth one stays. The source
  // may be this image; where it lacks a pixel or plane this image's pixels stay, and a null source does nothing.
  void Do(CVynImage* src, double aPlus, double aMinus, double bPlus, double bMinus, CRect* pRect, int bProgress);
  // One factor an axis.
  void Do(CVynImage* src, double aGain, double bGain, CRect* pRect, int bProgress);
};
