// The tone curves on any image, for the operation's class and for those that run it on plain images.
#pragma once

#include "qmrimg/image/vyn_image.h"

namespace qmr {

// See the members of CImgToneCurve; `target` is the destination.
void RunToneCurve(CVynImage& target, const float* const* tables, int n, CVynImage* source, const CRect* pRect,
                  int bProgress, int hAlpha);
void RunHAlpha(CVynImage& target, double knee, double kneeOutput, CVynImage* source, const CRect* pRect, int bProgress);
void RunHAlphaLevel(CVynImage& target, double factor, CVynImage* source);

}  // namespace qmr
