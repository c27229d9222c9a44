// Histogram equalisation.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Ranks every pixel of a plane: the pixel of rank r of N, counted from 0, becomes r * (max - min) / N + min, so that
// the histogram is flat whatever the plane holds. Equal pixels take their ranks in random order, drawn from the C
// library's rand(): two runs differ, and runs after the same srand() are equal for every number of threads.
//
// Not-a-number ranks behind all numbers (and leaves minimum and maximum alone). A flat plane becomes its minimum. With
// an infinite pixel the results are not-a-number or infinite.
class QMR_API CImgHstEql : public CVynImage {
 public:
  CImgHstEql();
  ~CImgHstEql() override;

  // Equalises the planes that both images have, three at most, and always reports. The source, which may be this image,
  // gets the minimum and maximum of each plane as its levels, and CalcMinMax runs on it. Gives 1; 0 for no source.
  // Needs 16 bytes a pixel of one plane; raises the memory exception without them, and for a plane of 2^32 pixels or
  // more.
  int Do(CVynImage* source);
};
