// A colour image from a luminance frame and a colour frame.
#pragma once

#include "qmrimg/image/vyn_image.h"

// L comes from one frame, a and b from the other, in the Lab space of CColor. The object has the wanted size and three
// planes (with fewer nothing happens, nor when a frame is null); all three take the levels of the luminance frame's
// plane 0. Frames lie as with CImgRgbCmpst; the colour frame is read at `colourScale` times the distance from its
// centre besides (0.5 for a frame of half the resolution). Outside of a frame its values are 0.0. Frames may be the
// object.
class QMR_API CImgLrgbCmpst : public CVynImage {
 public:
  CImgLrgbCmpst();
  CImgLrgbCmpst(const CImgLrgbCmpst& src);
  ~CImgLrgbCmpst() override;
  CImgLrgbCmpst& operator=(const CImgLrgbCmpst& src);

  // From frames of red, green and blue (a monochrome frame counts as grey), read bilinearly. 256-scale values are
  // limited to 0..5000 before the conversion. With `blendOnly` the planes are blended one by one on the 256-scale
  // instead, without a limit or a report, to judge how frames fit: `blend` 1 gives the absolute difference, 2 the full
  // scale minus that, any other number the mean.
  void DoLrgb(CVynImage* luminance, double luminanceDx, double luminanceDy, double luminanceAngle, CVynImage* colour,
              double colourDx, double colourDy, double colourAngle, int useImageCenter, double colourScale,
              CRect* pRect, int blendOnly, unsigned blend, int bProgress);
  // From frames of Lab planes as MakeLPlane and MakeAbPlane give them: plane 0 of `luminance` is L, planes 0 and 1 of
  // `colour` are a and b. `method` is a number of CInterp.
  void DoLab(CVynImage* luminance, double luminanceDx, double luminanceDy, double luminanceAngle, CVynImage* colour,
             double colourDx, double colourDy, double colourAngle, int useImageCenter, double colourScale, int method,
             CRect* pRect, int bProgress);
};
