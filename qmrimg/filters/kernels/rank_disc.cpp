#include "qmrimg/filters/kernels/rank_disc.h"

#include <algorithm>

namespace qmr {

RankDisc::RankDisc(int limit, double radius) {
  const double square = radius * radius;
  int half = limit;
  for (int dy = 0; dy <= limit; ++dy) {
    while (half >= 0 && !(static_cast<double>(half) * half + static_cast<double>(dy) * dy <= square)) --half;
    if (half < 0) break;
    halves_.push_back(half);
    count_ += (2 * half + 1) * (dy == 0 ? 1 : 2);
  }
  reach_ = std::max(static_cast<int>(halves_.size()) - 1, 0);
}

}  // namespace qmr
