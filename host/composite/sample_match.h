// Two pictures laid on one another by comparing a part of them.
#pragma once

#include <optional>

#include "qmrimg/image/vyn_image.h"

namespace qmr {

struct SampleMatch {
  double dx, dy;       // by which the upper picture is to move, pixels
  double correlation;  // of the two in that part then, at most 1
};

// Searches `range` pixels to each side, to a tenth of a pixel. The two have one size, and `part` keeps `range` pixels
// from their edges. Exposure, sky and its slopes may differ. Nothing when there is no detail to compare.
std::optional<SampleMatch> MatchSample(const CVynImage& below, const CVynImage& above, const CRect& part, int range);

}  // namespace qmr
