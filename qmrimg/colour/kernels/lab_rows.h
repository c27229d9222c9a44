// Rows taken to the Lab space and back.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "qmrimg/colour/kernels/colour_rows.h"
#include "qmrimg/image/kernels/level_rows.h"

namespace qmr {

// Where L, a and b go; an empty span is left out.
struct LabResult {
  std::span<float> l;
  std::span<float> a;
  std::span<float> b;
};

// From raw pixels of three planes, 256-scale values in float limited to 0..high.
struct LabLevels {
  float min[3];
  float k[3];  // 255 / range
  float high;
};
void LabRow(const RgbSource& src, const LabResult& dst, const LabLevels& levels);
// A monochrome row: one value for all three channels, limited to 0..high.
void LabRow(std::span<const float> src, const LabResult& dst, const RowLevels& levels, float high);

// Factors of a and b for values not below 0 and for those below; levels of the result.
struct Enhancement {
  double aPlus;
  double aMinus;
  double bPlus;
  double bMinus;
  RowLevels levels[3];
};
// `lab` may be the rows of the result.
void EnhanceRow(const RgbSource& lab, const RgbResult& dst, const Enhancement& enhancement);

}  // namespace qmr
