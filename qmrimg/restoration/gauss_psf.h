// The Gaussian point-spread function of the iterative restorations.
#pragma once

#include <vector>

#include "qmrimg/platform/export.h"

namespace qmr {

// A round Gaussian of `sigma` pixels about the point (width / 2, height / 2), sampled at the pixels of a width x height
// array and divided by its sum: rows from the top, `width` floats each. For an even size the peak is the element
// (width / 2, height / 2); for an odd one it falls between four elements. Values are computed in double, stored and
// summed in single precision. A sigma of 0 or not-a-number gives not-a-number throughout; a size below 1 gives an
// empty array. Lack of memory throws the memory exception.
QMR_API std::vector<float> MakeGauss(double sigma, int width, int height);

}  // namespace qmr
