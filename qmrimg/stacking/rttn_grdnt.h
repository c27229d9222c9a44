// Rotational gradient: structure in the coma of a comet, jets in a corona.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Compares each pixel with the two pixels at the same distance from a centre, an angle to either side (Larson and
// Sekanina 1984): v = (o * (strength + 2) - s1 - s2) / strength, raw scale, o being the pixel of the source and s1 and
// s2 the two others, read bilinearly. The smaller `strength`, the more structure; 0 leaves the division out and gives
// the bare difference about 0. Pixels beyond the source are 0.0, so that its borders stand out.
//
// `angle` in degrees, the centre in pixels of the source. The source may be this image. What it lacks in width, height
// or planes stays as it is; without a source nothing happens.
class QMR_API CImgRttnGrdnt : public CVynImage {
 public:
  CImgRttnGrdnt();
  ~CImgRttnGrdnt() override;

  void Do(double angle, double strength, double centerX, double centerY, CVynImage* source, CRect* pRect,
          int bProgress);

  // The same within limits of tone, which are levels of this image on the 256-scale, plane by plane. With `useLow`
  // pixels of the source below lowLevel - lowWidth stay, and the filter fades in up to lowLevel; with `useHigh` it
  // fades out from highLevel up to highLevel + highWidth. With `protect` no pixel gets darker; `protectPercent`
  // matters on purpose only when it is negative: it then darkens further, by its hundredth of the difference.
  // `bProgressCross` non-zero draws a dotted cross through the centre into plane 0, as far as it lies in the rectangle.
  void Do(double angle, double strength, double centerX, double centerY, int useLow, double lowLevel, double lowWidth,
          int useHigh, double highLevel, double highWidth, int protect, double protectPercent, int bProgressCross,
          CVynImage* source, CRect* pRect, int bProgress);
};
