// Smoothing.
#pragma once

#include "qmrimg/image/vyn_image.h"

namespace qmr {
struct SelectionLimits;
}

// The object is the destination, `source` the image read, which may be the object itself; without a source nothing
// happens. Only rows, columns and planes that both have are written; where the object's engines do the work, planes
// beyond the third stay as they are. Every operation has a simple form for all pixels, and a full form with limits that
// choose the pixels which change; scalar variants use one value for all planes, array variants take one entry a plane
// of this image. A kernel too large for memory throws the memory exception.
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

  // Mean over `radius` pixels around each; the centre counts 1 and the others `weight`, 0 for a copy. The full forms
  // take the pixels of a disc, in all planes. The simple forms take those of a square as wide as the disc, from rows
  // and columns one after the other, on purpose: they are the fast ones. Their kernels stay in the object's engines, as
  // with GaussianFilter.
  void MeanFilter(double radius, double weight, CVynImage* source, CRect* pRect, int bProgress);
  void MeanFilter(double* radius, double* weight, CVynImage* source, CRect* pRect, int bProgress);
  void MeanFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn, double max,
                  double maxBuf, CVynImage* source, CRect* pRect, int bProgress);
  void MeanFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf, int* maxOn, double* max,
                  double* maxBuf, CVynImage* source, CRect* pRect, int bProgress);

  // The mean over such a square for pixels much darker than their surroundings; the others stay. The measure is an edge
  // response: the centre row of a Laplacian over the neighbours within the square root of `radius` pixels, divided by
  // its sum and applied along rows and columns. A pixel with a response that is not below 0 is kept; another keeps of
  // itself the square of the response in units of this image's level range, which is next to nothing. The kernels stay
  // in the object's engines and in the first of its further groups.
  void MeanWithoutEdgeFilter(double radius, double weight, CVynImage* source, CRect* pRect, int bProgress);
  void MeanWithoutEdgeFilter(double* radius, double* weight, CVynImage* source, CRect* pRect, int bProgress);
  void MeanWithoutEdgeFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn, double max,
                             double maxBuf, CVynImage* source, CRect* pRect, int bProgress);
  void MeanWithoutEdgeFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf, int* maxOn,
                             double* max, double* maxBuf, CVynImage* source, CRect* pRect, int bProgress);

  // Median of the disc dx^2 + dy^2 <= radius^2, at least one and no more than `radius` columns and rows away, in all
  // planes: 1 takes the five pixels of a plus sign, 1.5 all nine of the square. At the image's border the disc holds
  // fewer pixels; of an even number the upper middle one is taken. Not-a-number sorts last. A radius that is not a
  // number gives 0.0. Throws the memory exception when disc and image are both larger than 4000 pixels.
  void MedianFilter(double radius, CVynImage* source, CRect* pRect, int bProgress);
  void MedianFilter(double* radius, CVynImage* source, CRect* pRect, int bProgress);
  void MedianFilter(double radius, int minOn, double min, double minBuf, int maxOn, double max, double maxBuf,
                    CVynImage* source, CRect* pRect, int bProgress);
  void MedianFilter(double* radius, int* minOn, double* min, double* minBuf, int* maxOn, double* max, double* maxBuf,
                    CVynImage* source, CRect* pRect, int bProgress);

 private:
  // `limits` has an entry a plane; null filters all pixels.
  void Gaussian(const double* sigma, const qmr::SelectionLimits* limits, CVynImage* source, CRect* pRect,
                int bProgress);
  void BoxMean(const double* radius, const double* weight, CVynImage* source, CRect* pRect, int bProgress);
  void DiscMean(const double* radius, const double* weight, const qmr::SelectionLimits* limits, CVynImage* source,
                CRect* pRect, int bProgress);
  void MeanWithoutEdge(const double* radius, const double* weight, const qmr::SelectionLimits* limits,
                       CVynImage* source, CRect* pRect, int bProgress);
  void Median(const double* radius, const qmr::SelectionLimits* limits, CVynImage* source, CRect* pRect, int bProgress);
};
