// Alignment by matching a template.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Finds where a small image lies on the object, to a tenth of a pixel: the position at which the mean square of
// (object - ratio * template) is least. Positions are those of the template's top left pixel, in pixels of the object;
// values are raw. Planes that one of the two images lacks don't count, and what lies beyond the object is left out:
// nothing penalises a small overlap. The object is only read.
//
// For the last tenth of a pixel blur both images first: between its pixels a template is smoother than on them, so that
// its noise pulls the best position towards half pixels. And give the two about the same mean and size, since the ratio
// of their means is taken for one of exposures: cut the object to the template's surroundings. GetAvrGrayRaw divides by
// (Width - 1) * (Height - 1), so that the ratio of a small template is too low, by 4 % for 50 x 50 pixels of a large
// object; a perfect match then scores above 0.
class QMR_API CImgMatching : public CVynImage {
 public:
  CImgMatching();
  ~CImgMatching() override;

  // Searches about the estimate (*x, *y): every second pixel up to range / 2 away in either direction, then the eight
  // neighbours of the best, then with `subPixel` non-zero positions by 0.3 and at last by 0.1 pixels. The ratios are
  // those of the means of the two images, plane by plane on two colour images, so that differences of exposure don't
  // count. Of equal scores the first one in rows, then columns, wins. 1 with the best position in (*x, *y); 0, and the
  // estimate stays, when no position had a finite score: no overlap, a template whose mean is 0, a null argument.
  int Do(CVynImage* matchTemplate, double* x, double* y, int range, int subPixel, int bProgress);

  // The score of a position, squared raw values: 0 is a perfect match. `ratios` has one value for each plane. Without
  // overlap, or with a null argument, 3.402823466e38. The second form reads the template between its pixels, bilinear.
  double CalcValue(CVynImage* matchTemplate, int x, int y, double* const ratios) const;
  double CalcValue(CVynImage* matchTemplate, double x, double y, double* const ratios) const;
};
