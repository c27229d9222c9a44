// How much light of the same sky two frames hold.
#pragma once

#include "host/night/frame.h"

namespace qmr {

// The factor that brings `frame`'s light to that of `reference`: the median, over isolated bright details of the
// reference, of the ratio of their fluxes above the local sky, in a box around the place where the frame's geometry
// puts them. 1 where fewer than eight details serve or the ratio is absurd.
double TransparencyRatio(const LightFrame& reference, const LightFrame& frame);

}  // namespace qmr
