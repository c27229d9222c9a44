// Dark frames for exposures that were never taken.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Each operation blends the object, the first dark frame, with `dark2` in place. `a1` and `a2` are the values of one
// quantity (say, the temperature) that belong to the object and to `dark2`, `a3` is its wanted value; `b1` to `b3`
// are those of a second quantity (say, the exposure). Equal values of the two frames divide by zero, which runs
// through to the pixels. Where `dark2` has no pixel the object's stays. Raw scale, on the calling thread.
class QMR_API CImgDark : public CVynImage {
 public:
  CImgDark();
  CImgDark(const CImgDark& src);
  ~CImgDark() override;
  CImgDark& operator=(const CImgDark& src);

  // The linear shares of both quantities, added.
  void DoInterpolateByProportion(CVynImage* dark2, double a1, double a2, double a3, double b1, double b2, double b3,
                                 int bProgress);
  // Linear in the first quantity; the second adds a share of the first frame, 2 to the power of near - b3 / doubling
  // with the nearer of b1 and b2.
  void DoInterpolateByPower(CVynImage* dark2, double a1, double a2, double a3, double b1, double b2, double b3,
                            double doubling, int bProgress);
  // Linear in one score, kept between the two frames.
  void DoInterpolateByScore(CVynImage* dark2, double score, double score1, double score2, int bProgress);
};
