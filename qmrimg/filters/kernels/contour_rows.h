// Lines of equal brightness, along rows.
#pragma once

#include <cstddef>

#include "qmrimg/image/kernels/level_rows.h"

namespace qmr {

// How a gray value on the 256-scale becomes a whole level.
struct ContourScale {
  float factor;
  // The highest level when `clamped`; the lowest is 0 then.
  float levels;
  bool clamped;
};

// The whole levels of gray pixels, and of the brightness of three planes. Not-a-number is level 0.
void ContourLevels(const float* gray, std::size_t width, const RowLevels& levels, const ContourScale& scale,
                   int* steps);
void ContourLevels(const float* r, const float* g, const float* b, std::size_t width, const RowLevels (&levels)[3],
                   const ContourScale& scale, int* steps);

// How many of the three cells that the four samples along an axis make lie entirely before pixel `position`, that is
// in the pixel before it: 1 or 2. One of the three reaches over both pixels, the rest lies in the pixel itself.
int ContourCellsBefore(int position);

// The mean score of the nine cells around each pixel. `above` and `here` hold the levels of the rows y - 1 and y, with
// the pixel before the first one in element -1; `before` and `rowsBefore` are the ContourCellsBefore of the columns and
// of the row.
void ContourRow(const int* above, const int* here, const int* before, int rowsBefore, std::size_t width, float* score);

// Scores carried into the levels of a plane.
void ContourToPlane(const float* score, float* out, std::size_t width, const RowLevels& levels);

}  // namespace qmr
