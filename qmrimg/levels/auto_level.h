// Display levels found from the image.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Sets the object's levels from statistics of its pixels, which it never changes. The arrays and results are on the
// raw scale.
//
// On a colour image `perPlane` 0 measures its luminance once and moves the levels of all planes together; non-zero
// measures and sets each plane. Luminance weighs the 256-scale values of the planes and is carried to the raw scale
// through the levels of plane 0. On a monochrome image plane 0 counts. Of an empty rectangle mean and deviation are
// not a number, and go into the levels as they stand.
class QMR_API CImgAutoLevel : public CVynImage {
 public:
  CImgAutoLevel();
  ~CImgAutoLevel() override;

  // Percentiles: `low` and `high` are fractions of the pixels. A `low` or `high` of at most 0 or at least 1 is a
  // fraction of the range of values instead: 0 and 1 are minimum and maximum, -0.1 lies a tenth below the minimum.
  // Every bin counts one more than its content, so that empty bins advance the running sum, too.
  void DoByNormal(double low, double high, int perPlane, const CRect* pRect);
  // `low` standard deviations below and `high` above the mean.
  void DoByMean(double low, double high, int perPlane, const CRect* pRect);
  // The same about the median.
  void DoByMedian(double low, double high, int perPlane, const CRect* pRect);
  // The mode of the histogram is displayed at the share low / (low + high) of the levels, and the black level lies
  // `low` times the distance from the mode to its lower end below the mode. `balance` ties the planes together: 0
  // aligns their modes (and per plane the spreads as well), 1 gives them one black level (per plane: their own), 2
  // keeps the levels of plane 0 and aligns the others with it, 3 does nothing.
  void DoByHistogram(double low, double high, int perPlane, int balance, const CRect* pRect);

  // The reverse: the arguments that would give the levels of plane 0, luminance for a colour image. `method` 1 is
  // GetByMean, 2 GetByMedian, any other GetByNormal.
  void Get(double& low, double& high, int method, const CRect* pRect);
  void GetByNormal(double& low, double& high, const CRect* pRect);
  void GetByMean(double& low, double& high, const CRect* pRect);
  void GetByMedian(double& low, double& high, const CRect* pRect);

  // The mode of the histogram of a plane, or of the luminance; `low` and `high`, its ends, may be null. The minimum
  // and maximum of a plane are those of all its pixels.
  void GetMode(float* mode, float* low, float* high, int useLuminance, int nPlane, const CRect* pRect);
  // The median of a plane, or of the luminance, which weighs the raw pixels here. `subsample` non-zero takes sums of
  // blocks, about 50000 of them, for their pixels. 0 when there are none.
  void GetMedian(float* result, int subsample, int useLuminance, int nPlane, const CRect* pRect);
  // Medians of the four positions of the 2 by 2 cell of an undeveloped frame: rows, then columns.
  void GetMedianBayer(float* result, int subsample);
  // Gains of the eight sites of the 4 by 4 cell of an undeveloped honeycomb frame: the largest of their medians over
  // each one's. The border of a FinePix S2 Pro frame is left out.
  void GetMedianHoneyComb(double* result, int subsample);

  // The number of pixels from `low` to `high`, both included.
  void GetLevelRangeNum(float low, float high, int* count, int nPlane, const CRect* pRect);
  // Their deviation about their own mean; 0 when there are none.
  void GetLevelRangeStd(float low, float high, double* sigma, int nPlane, const CRect* pRect);
  // Their deviation about `high`: that of a distribution mirrored there. The luminance weighs raw pixels.
  void GetLevelDoubleRangeStd(float low, float high, double* sigma, int useLuminance, int nPlane, const CRect* pRect);

 private:
  void SetByNormal(double low, double high, int plane, const CRect* pRect);
  void BalanceLuminance(double low, double high, int balance, const CRect* pRect);
  void BalancePlanes(double low, double high, int balance, const CRect* pRect);
};
