// The pixels that levels are measured on.
#pragma once

#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/auto_level.h"

namespace qmr {

// Lets `measure` set levels on the pixels of the rectangle that have a value in every plane, and gives the image these
// levels. Its pixels stay. With `fromZero` an image that goes below 0 is lifted for the time, and the levels brought
// down again. False, with nothing measured, when no pixel is left.
bool MeasureLevels(CVynImage& image, const CRect& rect, bool fromZero, FunctionRef<void(CImgAutoLevel&)> measure);

}  // namespace qmr
