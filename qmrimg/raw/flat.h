// Correction of uneven illumination by an analytic model.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Each operation writes the object from `src` inside the rectangle. Arrays have one entry a plane of the object.
// x and y are image coordinates, whatever the rectangle. Raw scale.
//
// `mode` 0 subtracts the variation of the model; 1 divides by it, after an offset that keeps pixels and model away
// from zero (from the stored minimum of `src`, so call its CalcMinMax first, and from `lowest`, the lowest value of
// the model); any other value writes 0.0.
class QMR_API CImgFlat : public CVynImage {
 public:
  CImgFlat();
  CImgFlat(const CImgFlat& src);
  ~CImgFlat() override;
  CImgFlat& operator=(const CImgFlat& src);

  // Linear along the line through two points: slope * t + base, t in pixels.
  void DoFlat(CVynImage* src, CPoint* point1, CPoint* point2, double* slope, double* base, double* lowest, int mode,
              CRect* pRect, int bProgress);
  // gradX * x + gradY * y + constant.
  void DoFlatPoint(CVynImage* src, double* gradX, double* gradY, double* constant, double* lowest, int mode,
                   CRect* pRect, int bProgress);
  // curve * r * r + peak about a centre.
  void DoParabolic(CVynImage* src, CPoint* centre, double* curve, double* peak, double* lowest, int mode, CRect* pRect,
                   int bProgress);
  // curve * (x * x + y * y) + gradX * x + gradY * y + constant.
  void DoParabolicPoint(CVynImage* src, double* curve, double* gradX, double* gradY, double* constant, double* lowest,
                        int mode, CRect* pRect, int bProgress);
};
