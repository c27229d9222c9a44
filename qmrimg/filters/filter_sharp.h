// Sharpening.
#pragma once

#include "qmrimg/image/vyn_image.h"

namespace qmr {
struct SharpenLimits;
}

// The object is the destination, `source` the image read, which may be the object itself; without a source nothing
// happens. Only rows, columns and planes that both have are written. Every operation has a simple form for all
// pixels, and a full form with limits that choose the pixels which change; scalar variants use one value for all
// planes, array variants take one entry a plane of this image, and filter every plane with its own. A kernel too large
// for memory throws the memory exception.
//
// The limits, on the 256-scale of the source: where `minOn` is set, pixels from `min` upwards are filtered fully, and
// over `minBuf` below it the filter fades in; `maxOn`, `max` and `maxBuf` do the same at the upper end. Pixels beyond
// the ramps are copied. Where `brighterOn` is set, no pixel gets darker than it was, up to rounding: `brighter` of 0
// and above all mean that, and only one below 0 differs, as it pushes darkened pixels further down by that many
// hundredths.
class QMR_API CImgFilterSharp : public CVynImage {
 public:
  CImgFilterSharp();
  ~CImgFilterSharp() override;

  // Every pixel gains `weight` times its difference from each of its neighbours within the square root of `radius`
  // pixels (2: the eight nearest; 4: twelve), but from its four direct ones at least. At the left and right edges the
  // outermost column stands for those beyond, at the upper and lower ones the image is mirrored.
  void SharpFilter(double radius, double weight, CVynImage* source, CRect* pRect, int bProgress);
  void SharpFilter(double* radius, double* weight, CVynImage* source, CRect* pRect, int bProgress);
  void SharpFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn, double max,
                   double maxBuf, int brighterOn, double brighter, CVynImage* source, CRect* pRect, int bProgress);
  void SharpFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf, int* maxOn, double* max,
                   double* maxBuf, int* brighterOn, double* brighter, CVynImage* source, CRect* pRect, int bProgress);

  // The same where the pixel is as bright as its neighbours or brighter (their Laplacian is not below 0); the others
  // take of it the square of their Laplacian in units of this image's level range, which is next to nothing. A radius
  // below 1 has no neighbours and copies, but for -1, which stands for 1.
  void SharpEdgeFilter(double radius, double weight, CVynImage* source, CRect* pRect, int bProgress);
  void SharpEdgeFilter(double* radius, double* weight, CVynImage* source, CRect* pRect, int bProgress);
  void SharpEdgeFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn, double max,
                       double maxBuf, int brighterOn, double brighter, CVynImage* source, CRect* pRect, int bProgress);
  void SharpEdgeFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf, int* maxOn, double* max,
                       double* maxBuf, int* brighterOn, double* brighter, CVynImage* source, CRect* pRect,
                       int bProgress);

  // Unsharp mask: `gain` times the difference from a Gaussian of `sigma` pixels is added. The simple forms do so where
  // the ratio of Gaussian to pixel, on the raw scale, differs from 1 by at least `threshold`, and copy the others. In
  // the full forms the ramps scale the gain. The kernels and the source stay in the object's engines: a second call
  // uses those of the first, whatever its arguments, until ClearFilterProc. Planes beyond the third stay as they are.
  void UnSharpMask(double sigma, double gain, double threshold, CVynImage* source, CRect* pRect, int bProgress);
  void UnSharpMask(double* sigma, double* gain, double* threshold, CVynImage* source, CRect* pRect, int bProgress);
  void UnSharpMask(double sigma, double gain, int minOn, double min, double minBuf, int maxOn, double max,
                   double maxBuf, int brighterOn, double brighter, CVynImage* source, CRect* pRect, int bProgress);
  void UnSharpMask(double* sigma, double* gain, int* minOn, double* min, double* minBuf, int* maxOn, double* max,
                   double* maxBuf, int* brighterOn, double* brighter, CVynImage* source, CRect* pRect, int bProgress);

  // The mean of six unsharp masks. A band whose gain is not above 0 counts as the pixel itself, so that a single band
  // needs six times the gain of UnSharpMask. The kernels stay in the object's six further groups of engines, as there.
  void SubBandUnSharpMask(double sigma0, double gain0, double sigma1, double gain1, double sigma2, double gain2,
                          double sigma3, double gain3, double sigma4, double gain4, double sigma5, double gain5,
                          int minOn, double min, double minBuf, int maxOn, double max, double maxBuf, int brighterOn,
                          double brighter, CVynImage* source, CRect* pRect, int bProgress);
  void SubBandUnSharpMask(double* sigma0, double* gain0, double* sigma1, double* gain1, double* sigma2, double* gain2,
                          double* sigma3, double* gain3, double* sigma4, double* gain4, double* sigma5, double* gain5,
                          int* minOn, double* min, double* minBuf, int* maxOn, double* max, double* maxBuf,
                          int* brighterOn, double* brighter, CVynImage* source, CRect* pRect, int bProgress);

 private:
  struct Band;
  // `limits` has an entry a plane.
  void MaskBands(const Band* bands, const qmr::SharpenLimits* limits, CVynImage* source, CRect* pRect, int bProgress);
};
