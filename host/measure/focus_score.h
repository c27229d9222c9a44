// How sharp the stars of a frame are, whatever its exposure.
#pragma once

#include <vector>

#include "host/measure/star_finder.h"
#include "host/measure/star_plane.h"

namespace qmr {

// The score of CImgEvaluateFocus in squares about stars, less that of the emptiest parts of the frame, over
// the light in them: the median of these stars. Free of the exposure, about 1.6 for the sharpest stars and the less the
// softer they are. Stars so defocused that they are rings have sharp rims and count as sharper than they are. 0 without
// stars of enough light.
double FocusScore(StarPlane& plane, const SkyMap& sky, const std::vector<StarPlace>& stars);

}  // namespace qmr
