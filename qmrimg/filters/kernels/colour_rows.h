// Removal of false colour, along rows of the three planes.
#pragma once

#include <cstddef>

namespace qmr {

// Pixels whose ratios green to red and blue to red lie between the bounds, both exclusive, have the false colour.
struct FalseColour {
  double lowGreen;
  double highGreen;
  double lowBlue;
  double highBlue;
  // The channel in excess: 0 red, 1 green, 2 blue.
  int excess;
  double strength;
};

// Replaces the channel in excess by the mean of the other two, as far as `strength` goes. In double, rounded to float
// at the end. Result and source may be the same rows.
void FalseColourRow(const float* const (&from)[3], float* const (&to)[3], std::size_t width, const FalseColour& colour);

}  // namespace qmr
