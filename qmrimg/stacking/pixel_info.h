// Statistics of a rectangle or a circle, of the sky in it and of a star in it.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Measures the object and changes no pixel. All values are raw. Each pointer is to one entry a plane, three at most,
// and may be null; all outputs are 0 where nothing is measured. Rectangles are cut to the image, right and bottom
// exclusive; one of a single pixel gives that pixel and a deviation of 0. Standard deviations are in population form;
// a median is the upper middle of an even count. Not-a-number counts as the greatest value where pixels are sorted and
// is no minimum or maximum elsewhere.
class QMR_API CImgPixelInfo : public CVynImage {
 public:
  CImgPixelInfo();
  CImgPixelInfo(const CImgPixelInfo& src);
  ~CImgPixelInfo() override;
  CImgPixelInfo& operator=(const CImgPixelInfo& src);

  // Of all pixels. Sums are taken by row and added in the order of rows.
  void Calc(CRect rect, double* max, double* min, double* mean, double* sd, double* median);
  // The same about a point, over a square of 2 * (size / 2) + 1 pixels.
  void Calc(CPoint pt, int size, double* max, double* min, double* mean, double* sd, double* median);

  // Of the darker half of the pixels: what is left of a sky when stars are taken out.
  void CalcSky(CRect rect, double* max, double* min, double* mean, double* sd, double* median);
  // Of the band about the median that holds the fractions `upper` and `lower`, 0..1, of the pixels above and below it.
  void CalcSky(CRect rect, double upper, double lower, double* max, double* min, double* mean, double* sd,
               double* median);
  // The same in a circle. On purpose a row gives as many pixels as its chord is long, but from the left edge of the
  // circle's square on.
  void CalcSky(int x, int y, int radius, double upper, double lower, double* max, double* min, double* mean, double* sd,
               double* median);
  // The band in a circle, and the diameter in pixels of the disc of as many pixels as lie above the mean of the band's
  // median and the brightest pixel. `reserved` becomes 0.
  void CalcStar(int x, int y, int radius, double upper, double lower, double* max, double* min, double* mean,
                double* sd, double* median, double* reserved, double* diameter);

  // The width of the star of the brightest pixel of plane 0 within ten pixels, as class PSF measures it: FWHM in
  // pixels, 0.0 without a star. None is found when the first pixel of that square is the brightest.
  void CalcFWHM(int x, int y, double* fwhm);
};
