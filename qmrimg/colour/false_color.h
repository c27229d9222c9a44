// Brightness shown as colour.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgFalseColor : public CVynImage {
 public:
  CImgFalseColor();
  CImgFalseColor(const CImgFalseColor& src);
  ~CImgFalseColor() override;
  CImgFalseColor& operator=(const CImgFalseColor& src);

  // Colours this image by the brightness of the source, monochrome or colour. `low` and `high`, raw values of the
  // source's plane 0, are the ends of the palette; pixels beyond take the colour at its end. They go through the
  // source's levels, the pixels through this image's, on purpose: give both images the same levels. `palette`: 0 blue
  // to red, 1 black to white through the spectrum, 2 blue tones, 3 cyan tones, 4 red tones, 5 fire; any other is grey.
  // `repeat` above 0 runs through the palette that many times.
  //
  // Nothing happens, and no report is made, when this image has fewer than three planes or the source is null; a fourth
  // plane stays. The source may be this image; where it has no pixel this image's stays.
  void Do(double low, double high, int palette, int repeat, CVynImage* src, CRect* pRect, int bProgress);

 protected:
  // The colour of `value`, limited to 0..255; red, green and blue on the 256-scale. Not-a-number stays so.
  void GetFalseColor(float value, int palette, int repeat, float* red, float* green, float* blue);
};
