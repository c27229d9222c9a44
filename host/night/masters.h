// Master frames.
#pragma once

#include <string>
#include <vector>

#include "host/night/frame.h"
#include "host/night/options.h"
#include "host/night/plan.h"
#include "host/night/steps.h"

namespace qmr {

// Master bias, dark and flat of a night.
//
// Frames of a master are combined pixel by pixel: one as it is, two by their mean, up to five by their median, more by
// the mean of what lies within three standard deviations of the median. The dark holds the bias. A flat has the flat
// dark subtracted, else the bias, else a dark that was not exposed longer than the flat, else, as a camera's raw file,
// the black level of its sensor; each flat is brought to the same mean before they are combined. The colours of a
// mosaic's flat are brought to one mean, so that the flat does not tint the picture. Flat pixels below a fifth of the
// mean are set to 0: what lies under them is hardly lit and counts as not seen, instead of being divided by almost
// nothing.
//
// `mosaic` is that of all frames. A frame that can't be used is named in `leftOut`.
Masters MakeMasters(const NightPlan& plan, const StackOptions& options, const MosaicLayout& mosaic, Steps& steps,
                    std::vector<LeftOut>& leftOut);

}  // namespace qmr
