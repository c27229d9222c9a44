// Smoothing.
#pragma once

#include "qmrimg/image/vyn_image.h"

namespace qmr {
struct SelectionLimits;
}

// The object is the destination, `source` the image read; planes that one of them lacks, and those beyond the third,
// stay as they are. Every operation has a
// simple form, and a full form with limits that choose the pixels which change; scalar variants use one value for
// all planes, array variants take one entry a plane of this image.
//
// The limits, on the 256-scale of the source: where `minOn` is set, pixels from `min` upwards are filtered fully,
// and over `minBuf` below it the filter fades in; `maxOn`, `max` and `maxBuf` do the same at the upper end. Pixels
// beyond the ramps are copied.
class QMR_API CImgFilterBlur : public CVynImage {
 public:
  CImgFilterBlur();
  ~CImgFilterBlur() override;

  // Gaussian of `sigma` pixels, 0 for a copy. The kernel and the source stay in the object's engines: a second call
  // uses those of the first, whatever its arguments, until ClearFilterProc.
  void GaussianFilter(double sigma, CVynImage* source, CRect* pRect, int bProgress);
  void GaussianFilter(double* sigma, CVynImage* source, CRect* pRect, int bProgress);
  void GaussianFilter(double sigma, int minOn, double min, double minBuf, int maxOn, double max, double maxBuf,
                      CVynImage* source, CRect* pRect, int bProgress);
  void GaussianFilter(double* sigma, int* minOn, double* min, double* minBuf, int* maxOn, double* max, double* maxBuf,
                      CVynImage* source, CRect* pRect, int bProgress);

 private:
  // `limits` has an entry a plane; null filters all pixels.
  void Gaussian(const double* sigma, const qmr::SelectionLimits* limits, CVynImage* source, CRect* pRect,
                int bProgress);
};
