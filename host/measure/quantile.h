// Values at a share of a sorted list.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace qmr {

// The value that this share of the others is not above; 0 of nothing.
template <class Value>
Value Quantile(std::vector<Value>& values, double share) {
  if (values.empty()) return Value{0};
  const auto last = static_cast<std::ptrdiff_t>(values.size()) - 1;
  const auto place = std::min(static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size())), last);
  std::nth_element(values.begin(), values.begin() + place, values.end());
  return values[static_cast<std::size_t>(place)];
}

template <class Value>
Value MedianOf(std::vector<Value>& values) {
  return Quantile(values, 0.5);
}

}  // namespace qmr
