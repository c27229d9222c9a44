// Rows of the compositions of frames.
#pragma once

#include <span>

#include "qmrimg/image/bilinear.h"
#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/row_table.h"

namespace qmr {

inline constexpr int kRgbPlanes = 3;

// Three rows of one width, by the address of their first pixel.
using RgbRows = float* const (&)[kRgbPlanes];

// Solves red, green and blue from rows of cyan, magenta and yellow in place, in float, without a clamp.
void CmyToRgbRow(RgbRows rows, int width);

// The mean of two rows in float.
void MeanRow(std::span<const float> a, std::span<const float> b, std::span<float> out);

// L of `luminance` with a and b of `colour`, both on the 256-scale and limited to 0..5000, as RGB through the levels
// `out` of the result.
void LrgbRow(RgbRows luminance, RgbRows colour, int width, const RowLevels (&levels)[kRgbPlanes], RgbRows out);

// The same from L, a and b.
void LabToRgbRow(const float* l, const float* a, const float* b, int width, const RowLevels (&levels)[kRgbPlanes],
                 RgbRows out);

// How two values on the 256-scale are blended.
enum class PlaneBlend { kMean, kDifference, kInverseDifference };

// `full` is the white that kInverseDifference subtracts from, on the 256-scale.
void PlaneBlendRow(PlaneBlend blend, const float* u, const float* v, int width, double full, const RowLevels& levels,
                   float* out);

// Bilinear samples of columns left..left + count - 1 of row y of the result, on the 256-scale of each of the first
// `planes` planes; 0.0 outside of the frame.
void SampleRow256(const RowTable& frame, const Placement& placement, const RowLevels (&levels)[kRgbPlanes], int planes,
                  int left, int y, int count, RgbRows out);

}  // namespace qmr
