// Brightness and contrast of any image, for callers that have no object of the class.
#pragma once

#include "qmrimg/image/vyn_image.h"

namespace qmr {

// CImgBright::Do with `target` as the object: the arrays have an entry for each plane of it, or are null.
void RunBright(CVynImage& target, const float* brightness, const float* contrast, double average, CVynImage* source,
               const CRect* pRect, int bProgress);

}  // namespace qmr
