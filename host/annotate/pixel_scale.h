// How large a pixel is in the sky, and how long a bar shows it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/files/keyword.h"

namespace qmr {

// Arc seconds a pixel: from the plate solution (CD, else CDELT, of celestial axes), else PIXSCALE or SECPIX, else
// XPIXSZ (binned pixels, as is usual) and FOCALLEN.
std::optional<double> ArcsecPerPixel(const std::vector<Keyword>& keywords);

struct ScaleBar {
  double pixels;
  std::string label;  // UTF-8
};
// The longest round length that is no longer than `most` pixels; none when there is none from 0.01" to 90 degrees.
std::optional<ScaleBar> RoundBar(double arcsecPerPixel, double most);

}  // namespace qmr
