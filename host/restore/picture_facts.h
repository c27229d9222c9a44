// What a restoration has to know of a picture, where the user does not say it.
#pragma once

#include "host/night/frame.h"
#include "host/operations/parameters.h"
#include "host/operations/remarks.h"

namespace qmr {

// The Gaussian blur that the settings name, pixels: "sigma" itself, else what widens stars of FWHM "target" to "fwhm".
double BlurOf(const Settings& settings);

// Each finds what the settings lack, the blur alone or all that a method takes, and tells what it has found. A Failure
// says what the picture has or lacks. The frame has no pixels without a value left.
void FindBlur(const LightFrame& frame, Settings& settings, Remarks& remarks);
void FindForLucy(const LightFrame& frame, Settings& settings, Remarks& remarks);
void FindForMem(const LightFrame& frame, Settings& settings, Remarks& remarks);

// "fwhm" and "target" go together, "sigma" goes alone.
void CheckBlur(const Settings& settings);

// The sky of a plane, raw scale.
struct PlaneSky {
  double level;  // median over tiles
  double noise;  // standard deviation of a pixel, above 0
  double low;    // the value that one pixel in 500 is not above
  double mean;   // of all pixels
};
// A Failure for an image smaller than this a side.
inline constexpr int kLeastSkySide = 16;
PlaneSky SkyOf(const CVynImage& image, int plane);

}  // namespace qmr
