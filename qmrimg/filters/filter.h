// Small filters over three fixed pixel patterns, and what other filters need: row tables and padded work images.
#pragma once

#include "qmrimg/image/vyn_image.h"

// `method` names the pattern around a pixel:
//
//   0   plus sign: the pixel and its four direct neighbours        5 pixels, radius 1
//   1   3 by 3 square                                              9 pixels, radius 1
//   2   5 by 5 square without its four corners                    21 pixels, radius 2
//   any other: the pixel alone                                     1 pixel,  radius 0
//
// Edges: the rows mirror about row 0 at the top and with the last row repeated at the bottom (-k reads k, H + k reads
// H - 1 - k); the columns reflect at both ends without repeating the end column: x + 1 stands for x - 1 at the first
// column, x + 2 for x - 2 at the first two, and the same at the right. The other filters clamp columns; the
// difference is on purpose. On images smaller than the pattern, indices are clamped after that.
//
// The object is the destination of the filters and the source of the pixel functions. Pixels are on the raw scale
// unless said otherwise, planes count from 0.
class QMR_API CImgFilter : public CVynImage {
 public:
  CImgFilter();
  ~CImgFilter() override;

  // ---- One pixel --------------------------------------------------------------------------------------------------
  // `rows` is a table of this image: 2 * radius + 1 row addresses that point at column `x` of the rows around the
  // pixel's (see SetFilterAdr). Without a table, and for coordinates outside the image, the result is 0.0. The forms
  // in 256f are on the 256-scale by the levels of `nPlane`, those in Gray are the raw value less its LevelMin. All
  // may run on many threads.

  // (S * weight + c) / (weight * n + 1) from the pixel c and the sum S of its n neighbours: 1 is the ordinary mean, 0
  // gives c. The ordinary mean also goes to `plainMean` unless it is null; a method without pattern leaves it alone.
  float GetMeanRaw(float** rows, int x, int method, double weight, double* plainMean) const;
  float GetMeanRaw(int x, int y, int method, double weight, int nPlane) const;
  float GetMean256f(float** rows, int x, int method, double weight, int nPlane) const;
  float GetMeanGray(float** rows, int x, int method, double weight, int nPlane) const;
  // In medians and ranks not-a-number counts as the largest value.
  float GetMedianRaw(float** rows, int x, int method) const;
  float GetMedianRaw(int x, int y, int method, int nPlane) const;
  float GetMedian256f(float** rows, int x, int method, int nPlane) const;
  float GetMedianGray(float** rows, int x, int method, int nPlane) const;
  // Element `rank` of the pattern's pixels in ascending order: 0 is the minimum, their number less 1 the maximum, and
  // 0.0 comes from ranks outside. A method without pattern gives the pixel for every rank.
  float GetMinMaxRaw(float** rows, int x, int method, int rank) const;
  // |L| + LevelMin of `nPlane` from a table of radius 1, whatever the method. L is 4c less the direct neighbours
  // (method 0), 8c less all eight (1), or the kernel 1 -2 1, -2 4 -2, 1 -2 1 (2). Any other method takes the first
  // entry of the table, the pixel above, for L.
  float GetLaplacianRaw(float** rows, int x, int method, int nPlane) const;
  float GetLaplacian256f(float** rows, int x, int method, int nPlane) const;
  float GetLaplacianGray(float** rows, int x, int method, int nPlane) const;
  // |8c less the eight neighbours|, whose coordinates are clamped to the image, other than in the patterns.
  float HighPassRaw(int x, int y, int nPlane) const;
  // The pattern's radius.
  int GetMeanR(int method) const;

  // ---- Whole images -----------------------------------------------------------------------------------------------
  // Pixel by pixel the values of the functions above. The source may be this image; without one nothing happens. What
  // it lacks in width, height or planes stays as it is.

  void MedianFilter(int method, CVynImage* source, CRect* pRect, int bProgress);
  void MinMaxFilter(int method, int rank, CVynImage* source, CRect* pRect, int bProgress);
  // All planes are offset by LevelMin of the source's plane 0.
  void LaplacianFilter(int method, CVynImage* source, CRect* pRect, int bProgress);
  // (c - m) * gain + c where the plain mean p of the pattern differs from the pixel c by |p / c - 1| >= threshold, and
  // c elsewhere; m is the mean by `weight`. Results are not clamped.
  void UnSharpMask(double gain, int method, double weight, double threshold, CVynImage* source, int nPlane,
                   CRect* pRect, int bProgress);
  void UnSharpMask(double gain, int method, double weight, double threshold, CVynImage* source, CRect* pRect,
                   int bProgress);

  // ---- For other filters ------------------------------------------------------------------------------------------

  // The rectangle clamped to this image; null is the whole image.
  void CalcRect(int& left, int& top, int& right, int& bottom, CRect* pRect) const;
  // Where this image's pixels begin in a padded copy of it: half of what `source` is larger by. Leaves both arguments
  // alone when the source is larger in neither direction. `nPlane` has no effect.
  void CalcShift(int& shiftX, int& shiftY, int nPlane, CVynImage* source) const;
  // Fills `rows` with 2 * radius + 1 addresses of column `x`: entry i is row y - radius + i after mirroring. Null
  // addresses for a column or plane outside the image, or samples that are no floats. Bit 1 of `mode` pins the rows
  // until UnlockAll.
  void SetFilterAdr(int x, int y, int nPlane, int radius, float** rows, unsigned mode) const;
  // A copy with `margin` (0: 2) more pixels on every side, mirrored at the left and top without repeating the edge, at
  // the right and bottom with it. The caller owns it. Null without memory or when nothing would be left of the image.
  CVynImage* MakeFilterWork(int margin, int bProgress);
  // The same of planes 0 to 2 with a fourth plane, their mean brightness by the levels of plane 0; an image of fewer
  // planes gives its plane 0 alone.
  CVynImage* MakeDDWork(int margin, int bProgress);
};
