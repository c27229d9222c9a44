// Arithmetic with a constant.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgCalculation : public CVynImage {
 public:
  CImgCalculation();
  ~CImgCalculation() override;

  // Adds `value` to the raw pixels of the source (mode 0), subtracts (1), multiplies by (2) or divides by it (3), in
  // float, and stores the result in this image. `clampNegative` non-zero limits the differences of mode 1 to raw 0
  // from below; the other modes do not read it. The source may be this image; where it has no pixel this image's
  // stays, and a null source does nothing.
  //
  // Where the processor has vectors (CKorSys::SIMD() & 2), mode 3 multiplies by the reciprocal, rounded to float, and
  // a division by 0 or an unknown mode writes nothing; the plain routine divides, and copies the source in those two
  // cases.
  void Do(double value, int mode, int clampNegative, CVynImage* source, CRect* pRect, int bProgress);

 protected:
  void DoCalculation(float value, int mode, int clampNegative, CVynImage* source, int left, int right, int top,
                     int bottom);
  // The vector routines, on all threads.
  void DoCalculation_x_add(float value, CVynImage* source, int left, int right, int top, int bottom);
  void DoCalculation_x_sub(float value, int clampNegative, CVynImage* source, int left, int right, int top, int bottom);
  void DoCalculation_x_mul(float value, CVynImage* source, int left, int right, int top, int bottom);
};
