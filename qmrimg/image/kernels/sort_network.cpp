#include "qmrimg/image/kernels/sort_network.h"

#include <algorithm>
#include <cstddef>

namespace qmr {

std::vector<Comparator> SortNetwork(int count) {
  std::vector<Comparator> network;
  if (count < 2) return network;
  int top = 1;
  while (top < count) top *= 2;
  top /= 2;
  for (int p = top; p > 0; p /= 2) {
    int q = top;
    int r = 0;
    int d = p;
    for (;;) {
      for (int i = 0; i + d < count; ++i) {
        if ((i & p) == r) network.push_back({i, i + d});
      }
      if (q == p) break;
      d = q - p;
      q /= 2;
      r = p;
    }
  }
  return network;
}

std::vector<Comparator> PruneNetwork(const std::vector<Comparator>& network, int count, int first, int last) {
  std::vector<bool> needed(static_cast<std::size_t>(std::max(count, 0)), false);
  for (int w = std::max(first, 0); w <= last && w < count; ++w) needed[static_cast<std::size_t>(w)] = true;
  std::vector<Comparator> kept;
  for (std::size_t i = network.size(); i-- > 0;) {
    const std::size_t low = static_cast<std::size_t>(network[i].low);
    const std::size_t high = static_cast<std::size_t>(network[i].high);
    if (!needed[low] && !needed[high]) continue;
    needed[low] = needed[high] = true;
    kept.push_back(network[i]);
  }
  std::reverse(kept.begin(), kept.end());
  return kept;
}

}  // namespace qmr
