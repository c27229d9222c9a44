// Inversion.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Mirrors each pixel in the 256-scale of the source and carries it into the levels of this image: the source's
// LevelMin becomes this image's LevelMax and the reverse. Values beyond the levels come out beyond the other end,
// unclamped. The source may be this image; it must have its planes.
class QMR_API CImgInvert : public CVynImage {
 public:
  CImgInvert();
  ~CImgInvert() override;

  void Do(CVynImage* src, CRect* pRect, int bProgress);

 protected:
  // Plain and vector routine; the pixels are the same, the vector routine runs on all threads.
  void DoInvert(CVynImage* src, int left, int right, int top, int bottom);
  void DoInvert_x(CVynImage* src, int left, int right, int top, int bottom);

 private:
  float InvertPixel(float v, float srcMin, float invSrcRange, float dstMin, float dstRange) const;
};
