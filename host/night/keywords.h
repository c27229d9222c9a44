// The header of a stack.
#pragma once

#include <vector>

#include "host/files/keyword.h"
#include "host/night/night.h"

namespace qmr {

// The reference frame's keywords, brought up to date, and what the field expects of a stack: STACKCNT, NCOMBINE,
// EXPTIME (of one frame), LIVETIME (of all), DATE-OBS (of the first), CALSTAT, ROWORDER, PROGRAM, and one HISTORY line
// a step.
std::vector<Keyword> StackKeywords(const NightResult& result, const LightFrame& reference, const Masters& masters,
                                   const StackOptions& options);

// True when the keywords say that row 0 is the bottom of the picture.
bool IsBottomUp(const std::vector<Keyword>& keywords);

}  // namespace qmr
