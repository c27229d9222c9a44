// Colour correction by a matrix.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Row k makes plane k of the result; column j multiplies plane j.
struct tagMATRIX {
  double m[3][3];
};

// Both forms work on planes 0, 1 and 2 and change nothing on an image of fewer. They return 0, with nothing done, when
// `matrix` is null or `offsetMode` is above 2, and 1 otherwise. `strength` blends from the old pixel (0) to the
// corrected one (1) and is limited to that; not-a-number counts as 0.
class QMR_API CImgColorCorrect : public CVynImage {
 public:
  CImgColorCorrect();
  ~CImgColorCorrect() override;

  // This image itself, raw scale. The matrix turns about a level in all three planes: the least pixel of the three
  // (offsetMode 1), `offset` (2) or 0 (0 and below). Corrected values end at 1.1754943508222875e-38 below and
  // 3.4028234663852886e38 above, so that none is zero or negative, whatever `nonNegative` says. With a strength of 0 no
  // report is made; offsetMode 1 makes one more, for the search.
  int Do(tagMATRIX* matrix, double strength, int offsetMode, float offset, int nonNegative, int bProgress);

  // From the source into the rectangle of this image, through the 256-scales of both, unclamped; with a strength below
  // 1 the rest is the raw pixel of the source. `offset` and `nonNegative` have no effect, and offsetMode 1 only makes
  // the report of a search. The source may be this image; pixels that it does not have stay, and without a source
  // nothing happens and 0 is returned.
  int Do(tagMATRIX* matrix, double strength, int offsetMode, float offset, int nonNegative, CVynImage* src,
         CRect* pRect, int bProgress);
};
