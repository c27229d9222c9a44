#include "qmrimg/filters/window_rows.h"

#include <algorithm>

namespace qmr {

WindowRows::WindowRows(int width, int radius, float rest)
    : width_(width),
      radius_(radius),
      rest_(rest),
      count_(2 * static_cast<std::size_t>(radius) + 1),
      stride_(static_cast<std::size_t>(width) + count_ - 1 + kBlockSlack),
      values_(count_ * stride_, rest),
      flags_(count_ * (static_cast<std::size_t>(width) / kTile + 1), 0) {
  static_assert(kBlockSlack >= kTile);
}

std::size_t WindowRows::Slot(std::int64_t y) const {
  const std::int64_t count = static_cast<std::int64_t>(count_);
  return static_cast<std::size_t>((y % count + count) % count);
}

std::span<float> WindowRows::Row(std::int64_t y) {
  return {values_.data() + Slot(y) * stride_ + static_cast<std::size_t>(radius_), static_cast<std::size_t>(width_)};
}

void WindowRows::Pad(std::int64_t y, int first, int last) {
  float* const row = Row(y).data();
  if (first == 0) std::fill(row - radius_, row, row[0]);
  if (last == width_) std::fill(row + width_, row + width_ + radius_, row[width_ - 1]);
}

void WindowRows::Flag(std::int64_t y, int first, int last) {
  const float* const row = Row(y).data();
  const std::size_t slot = Slot(y);
  for (std::size_t i = slot; i < flags_.size(); i += count_) flags_[i] = 0;
  for (int begin = first / kTile * kTile; begin < last; begin += kTile) {
    // Most tiles hold nothing: one look without branches.
    int any = 0;
    for (int i = 0; i < kTile; ++i) any |= row[begin + i] == rest_ ? 0 : 1;
    if (any == 0) continue;
    for (int x = std::max(begin, first); x < std::min(begin + kTile, last); ++x) {
      if (row[x] == rest_) continue;
      const int to = std::min(width_ - 1, x + radius_) / kTile;
      for (int tile = std::max(0, x - radius_) / kTile; tile <= to; ++tile)
        flags_[static_cast<std::size_t>(tile) * count_ + slot] = 1;
    }
  }
}

std::span<const unsigned char> WindowRows::Flags(int x) const {
  return {flags_.data() + static_cast<std::size_t>(x / kTile) * count_, count_};
}

bool WindowRows::Differs(int x) const {
  const std::span<const unsigned char> flags = Flags(x);
  return std::find(flags.begin(), flags.end(), 1) != flags.end();
}

int WindowRows::SameUntil(int x, int last) const {
  const std::span<const unsigned char> flags = Flags(x);
  int end = (x / kTile + 1) * kTile;
  while (end < last && std::equal(flags.begin(), flags.end(), Flags(end).begin())) end += kTile;
  return std::min(end, last);
}

void WindowRows::Gather(CFilterMatrix& kernel, std::int64_t y, int x, std::vector<BlockTap>& taps) const {
  taps.clear();
  for (int dy = -radius_; dy <= radius_; ++dy) {
    const std::size_t slot = Slot(y + dy);
    if (x >= 0 && Flags(x)[slot] == 0) continue;
    const float* const pixels = values_.data() + slot * stride_ + radius_;
    const float* const weights = kernel.At(0, dy);
    for (int dx = -radius_; dx <= radius_; ++dx) taps.push_back({pixels + dx, weights[dx]});
  }
}

}  // namespace qmr
