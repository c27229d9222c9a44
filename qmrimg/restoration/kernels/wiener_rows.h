// Rows between an image and the array of a transform, and rows under a radial window.
#pragma once

#include <cstddef>
#include <span>

#include "qmrimg/image/kernels/level_rows.h"

namespace qmr {

// The place of `at` in a line of `length` elements (at least 1) that goes on mirrored, the border repeated, for any
// number of times.
int MirrorIndex(int at, int length);

// A row on the 256-scale, rounded to float, as real parts of `width` complex elements (pairs of floats); beyond its
// end it goes on mirrored. An empty row gives zeros.
void LoadMirroredRow(std::span<const float> src, const RowLevels& levels, float* row, int width);

// The real parts back from the 256-scale.
void StoreRealRow(const float* row, const RowLevels& levels, std::span<float> dst);

// Raised cosine for the distances 0, 1, ..., count - 1 along a row `dy` rows off the centre; 0.0 from `radius` on.
void CosineWeights(double dy, double radius, int count, double* weights);

// Pixels times the weight of their distance from column `centre` of the row, in double.
void WeighRow(std::span<const float> src, const double* weights, int centre, std::span<float> dst);

}  // namespace qmr
