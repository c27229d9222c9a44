// Blending of an image under a mask, for the library's own use.
#pragma once

#include "qmrimg/image/vyn_image.h"

namespace qmr {

// Blends `src` into `target` under plane 0 of `mask`, taken through its levels to 0..1: `src` shows fully at 0 and
// `target` at 1, with bReverse the other way round. A plane of the target that `src` lacks is served by the last one of
// `src`. Nothing happens when an image is null or the mask has no level range. Where the mask is the target, later
// planes meet its blended plane 0. Advances the target's report by one unit a row a plane; opens and closes none.
QMR_API void BlendUnderMask(CVynImage& target, const CVynImage* src, const CVynImage* mask, int left, int right,
                            int top, int bottom, int bReverse);

}  // namespace qmr
