// One row taken through levels.
#pragma once

#include <cstddef>
#include <span>

namespace qmr {

// Levels of a plane, raw scale.
struct RowLevels {
  double min;
  double range;
};

// Every pixel limited to low..high, compared in double and stored as float.
void LimitRow(std::span<float> row, double low, double high);
// The same in float; not-a-number stays, and `high` wins where it lies below `low`.
void LimitRow(std::span<float> row, float low, float high);

// The 256-scale value of each pixel, in double, rounded to float.
void To256Row(std::span<const float> src, float* dst, const RowLevels& levels);

// Through the 256-scale of the source, rounded to float there, into the levels of the destination.
void RescaleRow(std::span<const float> src, std::span<float> dst, const RowLevels& from, const RowLevels& to);

// Brightness of three planes of one width, each with its own levels, taken back through the levels `to`.
void GrayRow(std::span<const float> r, std::span<const float> g, std::span<const float> b, std::span<float> dst,
             const RowLevels (&from)[3], const RowLevels& to);

}  // namespace qmr
