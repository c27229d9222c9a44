// Sorting networks: the same compare-and-exchange steps whatever the values, so that they run across pixels.
#pragma once

#include <vector>

namespace qmr {

// Puts the smaller of two wires on `low`.
struct Comparator {
  int low;
  int high;
};

// Batcher's odd-even merge sort of `count` wires, ascending (Knuth, The Art of Computer Programming 3, 5.2.2 M).
std::vector<Comparator> SortNetwork(int count);

// The steps of `network` that the wires first..last of the result depend on; their values are the same, bit for bit.
std::vector<Comparator> PruneNetwork(const std::vector<Comparator>& network, int count, int first, int last);

// Runs the steps on rows of Lanes values; wire w is rows[w * Lanes] .. rows[w * Lanes + Lanes - 1]. Not for
// not-a-number; of a negative and a positive zero one sign may be lost. The two conditions differ because compilers
// make vector minima and maxima of them, but a branch of two choices by one condition.
template <int Lanes, class Value>
void RunNetwork(const std::vector<Comparator>& network, Value* rows) {
  for (const Comparator step : network) {
    Value* const low = rows + step.low * Lanes;
    Value* const high = rows + step.high * Lanes;
#pragma omp simd
    for (int i = 0; i < Lanes; ++i) {
      const Value a = low[i];
      const Value b = high[i];
      low[i] = a < b ? a : b;
      high[i] = a > b ? a : b;
    }
  }
}

}  // namespace qmr
