#include "host/words/nearest.h"

#include <algorithm>
#include <cstddef>

namespace qmr {
namespace {

// Letters to insert, drop or exchange, and neighbours to swap, to get from one word to the other. `table` is room to
// work in.
std::size_t Distance(std::string_view a, std::string_view b, std::vector<std::size_t>& table) {
  const std::size_t width = b.size() + 1;
  table.resize((a.size() + 1) * width);
  const auto d = [&](std::size_t i, std::size_t j) -> std::size_t& { return table[i * width + j]; };
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        d(i, j) = i + j;
        continue;
      }
      d(i, j) = std::min({d(i - 1, j) + 1, d(i, j - 1) + 1, d(i - 1, j - 1) + (a[i - 1] == b[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        d(i, j) = std::min(d(i, j), d(i - 2, j - 2) + 1);
    }
  }
  return d(a.size(), b.size());
}

}  // namespace

std::string Nearest(std::string_view word, const std::vector<std::string>& candidates) {
  std::string_view best;
  std::size_t least = static_cast<std::size_t>(-1);
  std::vector<std::size_t> table;
  for (const std::string& candidate : candidates) {
    const std::size_t most = std::max<std::size_t>(1, candidate.size() / 3);
    std::size_t distance = 1;
    if (word.size() < 3 || !candidate.starts_with(word)) {
      // Every letter that one of them has more counts.
      if (word.size() > candidate.size() + most || candidate.size() > word.size() + most) continue;
      distance = Distance(word, candidate, table);
    }
    if (distance <= most && distance < least) {
      best = candidate;
      least = distance;
    }
  }
  return std::string(best);
}

}  // namespace qmr
