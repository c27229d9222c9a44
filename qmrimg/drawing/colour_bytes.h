// Colours of the form 0x00BBGGRR.
#pragma once

#include <algorithm>

namespace qmr {

struct ColourBytes {
  int red;
  int green;
  int blue;

  // Twice the grey that stands for the colour on a monochrome image: the greatest and the smallest byte together.
  int TwiceGrey() const { return std::max({red, green, blue}) + std::min({red, green, blue}); }
};

inline ColourBytes BytesOf(unsigned long colour) {
  const auto at = [colour](int shift) { return static_cast<int>(colour >> shift & 0xff); };
  return {at(0), at(8), at(16)};
}

}  // namespace qmr
