// The disc of a planet on a dark sky.
#pragma once

#include <optional>

#include "qmrimg/image/vyn_image.h"

namespace qmr {

struct PlanetDisc {
  double x = 0.0, y = 0.0;  // middle, pixels
  double area = 0.0;        // pixels
};

// The largest bright region; empty when it is not round (a seventh of flattening is allowed), leaves the picture or is
// smaller than 8 pixels. The image has no pixel that is not a number.
std::optional<PlanetDisc> FindPlanetDisc(const CVynImage& image);

}  // namespace qmr
