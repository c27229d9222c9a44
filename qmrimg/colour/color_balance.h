// Offsets a plane.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgColorBalance : public CVynImage {
 public:
  CImgColorBalance();
  CImgColorBalance(const CImgColorBalance& src);
  ~CImgColorBalance() override;
  CImgColorBalance& operator=(const CImgColorBalance& src);

  // Adds an offset to each plane of the source and stores the sum here, unclamped. The offsets are on the 256-scale of
  // this image's plane 0, whose range serves all planes, on purpose. A monochrome image takes `red`; a fourth plane
  // stays, and nothing happens on an image of two planes. The source may be this image; where it has no pixel this
  // image's stays, and a null source does nothing.
  void Do(double red, double green, double blue, CVynImage* src, CRect* pRect, int bProgress);

 protected:
  // Plain and vector routine, offsets raw, one a plane for the first three; the pixels are the same, the vector routine
  // runs on all threads.
  void DoColorBalance(const float* offsets, CVynImage* src, int left, int right, int top, int bottom);
  void DoColorBalance_x(const float* offsets, CVynImage* src, int left, int right, int top, int bottom);
};
