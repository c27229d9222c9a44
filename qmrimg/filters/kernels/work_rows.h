// Rows of padded work images.
#pragma once

#include <span>

namespace qmr {

// Fills what lies beside the pixels from..from + width - 1 of `row` with their mirror: without repeating the edge at
// the left, with it at the right.
void MirrorSides(std::span<float> row, int from, int width);

// A plane's levels, raw scale.
struct WorkLevels {
  double min;
  double range;
};

// The mean of three planes on the 256-scale of `levels`, carried back to the raw scale. Rows of equal length.
void MeanBrightnessRow(std::span<const float> r, std::span<const float> g, std::span<const float> b,
                       std::span<float> to, const WorkLevels& levels);

}  // namespace qmr
