// One plane, or the mean of two, of a colour image.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Fills an object of one plane from a source of three planes and the same size; with other shapes nothing happens.
class QMR_API CImgSeparation : public CVynImage {
 public:
  CImgSeparation();
  CImgSeparation(const CImgSeparation& src);
  ~CImgSeparation() override;
  CImgSeparation& operator=(const CImgSeparation& src);

  // `channel` 0, 1, 2: that plane with its levels. 3: the mean of planes 2 and 1 (cyan), 4: of 2 and 0 (magenta), 5: of
  // 1 and 0 (yellow), in raw scale, with the means of the levels; 5 takes the levels of planes 2 and 0 on purpose. Any
  // other number changes nothing but makes its report.
  void Do(CVynImage* src, int channel, int bProgress);
};
