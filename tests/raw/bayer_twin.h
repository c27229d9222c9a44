// A slow development of Bayer mosaics, one band of eight rows for each pair of result rows.
#pragma once

#include "qmrimg/raw/bayer_to_rgb.h"

namespace qmr::test {

// Gives `result` the developed pixels of plane 0 of `mosaic`; the arguments must be acceptable.
void DevelopSlowly(const CVynImage& mosaic, const tagBayerStruct& bayer, CVynImage& result);

}  // namespace qmr::test
