// Squared differences of an object from a template, row by row.
#pragma once

#include "qmrimg/stacking/kernels/column_cells.h"

namespace qmr {

// The sum of (object - ratio * pattern)² over a row: product and difference in float, squares and their sum in double.
// Column x belongs to sum x mod 16 of sixteen, which are folded in halves at the end.
double SquaresOfRow(const float* object, const float* pattern, float ratio, int count);

// `sum` with the squares of a row whose template is read between its pixels, added from left to right. The template's
// value is rounded to float, and so are its product with the ratio and the difference.
double AddSquaresBetween(double sum, const float* object, const ColumnCells& columns, const float* row0,
                         const float* row1, double fy, float ratio);

}  // namespace qmr
