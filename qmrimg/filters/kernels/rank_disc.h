// The window of a rank selection: which pixels around a pixel take part, and which of them, sorted, is wanted.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace qmr {

// Instead of a rank: element n / 2 of the n pixels of the window, the upper of two middle ones.
inline constexpr int kUpperMedian = -1;
// Instead of a rank: the last element.
inline constexpr int kGreatest = -2;

// The element that `rank` means among `count` sorted values; -1 where there is none.
inline int ResolveRank(int rank, int count) {
  if (rank == kUpperMedian) return count > 0 ? count / 2 : -1;
  if (rank == kGreatest) return count - 1;
  return rank >= 0 && rank < count ? rank : -1;
}

// The cells dx^2 + dy^2 <= radius^2 at most `limit` (0 or more) columns and rows away. A radius that is not a number
// has none.
class RankDisc {
 public:
  RankDisc(int limit, double radius);

  int Count() const { return count_; }
  // How far the disc goes in each of the four directions.
  int Reach() const { return reach_; }
  // Row `dy` holds the columns -Half(dy)..Half(dy), none when that is -1.
  int Half(int dy) const {
    const auto row = static_cast<std::size_t>(std::abs(dy));
    return row < halves_.size() ? halves_[row] : -1;
  }
  bool Has(int dx, int dy) const { return std::abs(dx) <= Half(dy); }

 private:
  int count_ = 0;
  int reach_ = 0;
  // Of the rows 0, 1, ...
  std::vector<int> halves_;
};

// Integers in the order of the floats: -0 before +0, not-a-number last, whatever its sign. No float has the key 0.
inline std::uint32_t OrderKey(float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  if (value != value) return 0xFFFFFFFFu;
  return bits & 0x80000000u ? ~bits : bits | 0x80000000u;
}
inline float FromOrderKey(std::uint32_t key) {
  return std::bit_cast<float>(key & 0x80000000u ? key & 0x7FFFFFFFu : ~key);
}

}  // namespace qmr
