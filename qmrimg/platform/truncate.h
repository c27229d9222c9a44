// Conversions from floating point to int that are defined for every value.
#pragma once

#include <limits>

namespace qmr {

// Truncation towards zero; not-a-number gives 0, values beyond int its nearest end.
inline int TruncateToInt(double value) {
  if (!(value == value)) return 0;
  if (value >= 2147483647.0) return std::numeric_limits<int>::max();
  if (value <= -2147483648.0) return std::numeric_limits<int>::min();
  return static_cast<int>(value);
}

}  // namespace qmr
