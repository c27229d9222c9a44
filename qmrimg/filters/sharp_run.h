// The sharpening filters on any image: what CImgFilterSharp does to itself.
#pragma once

#include "qmrimg/image/vyn_image.h"

namespace qmr {

struct SharpenLimits;

// SharpFilter, or SharpEdgeFilter with `edges`: `target` is the destination. All arrays have an entry a plane of
// `target`; without `limits` all pixels are filtered.
void RunSharpen(CVynImage& target, bool edges, const double* radius, const double* weight, const SharpenLimits* limits,
                CVynImage* source, const CRect* pRect, int bProgress);

// UnSharpMask through the engines of `target`. `threshold` belongs to the form without limits; no other reads it.
void RunUnSharpMask(CVynImage& target, const double* sigma, const double* gain, const double* threshold,
                    const SharpenLimits* limits, CVynImage* source, const CRect* pRect, int bProgress);

}  // namespace qmr
