// A colour image from frames through cyan, magenta and yellow filters.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Each of the frames holds the sum of two primaries; red, green and blue are solved from the three, without a clamp:
//
//   red = yellow + magenta - cyan    green = 2 yellow - red    blue = 2 magenta - red
//
// Raw scale throughout; the levels of each plane are the means of the two frames that its primary is part of. A colour
// frame gives its plane 2 for cyan, 0 for magenta and 1 for yellow; a monochrome one its only plane. Shifts, angles,
// `method`, `useImageCenter` and the object are those of CImgRgbCmpst.
class QMR_API CImgCmyComposit : public CVynImage {
 public:
  CImgCmyComposit();
  CImgCmyComposit(const CImgCmyComposit& src);
  ~CImgCmyComposit() override;
  CImgCmyComposit& operator=(const CImgCmyComposit& src);

  // `spare` has no effect. Nothing happens when a frame is null.
  void Do(CVynImage* cyan, double cyanDx, double cyanDy, double cyanAngle, CVynImage* magenta, double magentaDx,
          double magentaDy, double magentaAngle, CVynImage* yellow, double yellowDx, double yellowDy,
          double yellowAngle, int useImageCenter, int method, CRect* pRect, int spare, int bProgress);
};
