#include "qmrimg/filters/block_scan.h"

#include <algorithm>
#include <cstdlib>

#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/row_access.h"

namespace qmr {

int BlockSourceRow(std::int64_t y, int height) {
  const std::int64_t h = height;
  std::int64_t r = std::abs(y) % (2 * h);
  // One row alone mirrors onto itself.
  if (r >= h) r = std::min(std::abs(2 * h - r - 2), h - 1);
  return static_cast<int>(r);
}

BlockScan::BlockScan(const CImage& image, int plane, int radius, int left, int right)
    : image_(image), plane_(plane), radius_(std::max(radius, 0)), left_(std::max(left, 0)) {
  // Where there is a last row, there are all of them.
  const std::span<const float> row = ReadRow(image, image.GetHeight() - 1, plane, left_, right);
  if (row.empty()) return;
  columns_ = static_cast<int>(row.size());
  const std::size_t size = 2 * static_cast<std::size_t>(radius_) + 1;
  window_.resize(size);
  ringRows_ = static_cast<int>(std::min(size, static_cast<std::size_t>(image.GetHeight())));
  stride_ = row.size() + size - 1 + kBlockSlack;
}

bool BlockScan::MoveTo(int y) {
  const bool any = columns_ > 0 && y >= 0 && y < image_.GetHeight();
  y_ = any ? y : -1;
  if (!any) return false;
  std::int64_t row = static_cast<std::int64_t>(y) - radius_;
  for (int& w : window_) w = BlockSourceRow(row++, image_.GetHeight());
  // Reflection steps by one row at most, so this range has no gaps and no more rows than the ring.
  const auto [first, last] = std::minmax_element(window_.begin(), window_.end());
  firstRow_ = *first;
  lastRow_ = *last + 1;
  return true;
}

std::span<const float> BlockScan::Centre() const {
  return y_ < 0 ? std::span<const float>() : ReadRow(image_, y_, plane_, left_, left_ + columns_);
}

template <class Prepare>
void BlockScan::Fill(Ring& ring, Prepare prepare) {
  if (ring.values.empty()) {
    ring.finite.resize(static_cast<std::size_t>(ringRows_));
    ring.values.resize(stride_ * static_cast<std::size_t>(ringRows_));
  }
  if (firstRow_ < ring.first || firstRow_ > ring.last) ring.first = ring.last = firstRow_;
  for (; ring.last < lastRow_; ++ring.last) {
    const auto slot = static_cast<std::size_t>(ring.last % ringRows_);
    const std::span<float> row(ring.values.data() + slot * stride_, stride_ - kBlockSlack);
    // All of the row: the columns beside the wanted ones are pixels of the window, too.
    PadRow(ReadRow(image_, ring.last, plane_, 0, image_.GetWidth()), static_cast<std::int64_t>(left_) - radius_, row);
    prepare(row);
    ring.finite[slot] = AllFinite(row);
  }
  ring.first = std::max(ring.first, ring.last - ringRows_);
}

bool BlockScan::Gather(const Ring& ring, CFilterMatrix& matrix) {
  taps_.clear();
  if (matrix.GetCount() == 0) return false;
  const int common = std::min(radius_, matrix.GetRadius());
  for (int dy = -common; dy <= common; ++dy) {
    const auto slot = static_cast<std::size_t>(window_[static_cast<std::size_t>(dy + radius_)] % ringRows_);
    const float* const pixels = ring.values.data() + slot * stride_ + radius_;
    const float* const weights = matrix.At(0, dy);
    for (int dx = -common; dx <= common; ++dx) {
      // A term of 0 changes no sum (but the sign of one that has rounded to -0), while 0 times infinity is not a
      // number.
      if (weights[dx] == 0.0f && ring.finite[slot]) continue;
      taps_.push_back({pixels + dx, weights[dx]});
    }
  }
  return true;
}

void BlockScan::Convolve(CFilterMatrix& matrix, std::span<float> out) {
  if (y_ < 0) return;
  const std::size_t count = std::min(out.size(), static_cast<std::size_t>(columns_));
  Fill(plain_, [](std::span<float>) {});
  const bool equal = matrix.GetRadius() == radius_;
  if (!Gather(plain_, matrix) || (!equal && std::min(matrix.GetRadius(), radius_) == 0)) {
    std::fill_n(out.begin(), count, 0.0f);
    return;
  }
  // Columns whose window lies inside the image; with unequal radii no column is one of them.
  const std::int64_t limit = static_cast<std::int64_t>(count);
  const std::int64_t begin = equal ? std::clamp<std::int64_t>(radius_ - left_, 0, limit) : 0;
  const std::int64_t end =
      equal ? std::clamp<std::int64_t>(static_cast<std::int64_t>(image_.GetWidth()) - radius_ - left_, begin, limit)
            : 0;
  SumTapsRounded(taps_, 0, static_cast<std::size_t>(begin), out.data());
  SumTaps(taps_, static_cast<std::size_t>(begin), static_cast<std::size_t>(end), out.data());
  SumTapsRounded(taps_, static_cast<std::size_t>(end), count, out.data());
}

void BlockScan::ConvolveClamped(CFilterMatrix& matrix, float low, float high, std::span<float> out) {
  if (y_ < 0) return;
  const std::size_t count = std::min(out.size(), static_cast<std::size_t>(columns_));
  if (!(low == low_ && high == high_)) limited_.first = limited_.last = 0;
  low_ = low;
  high_ = high;
  Fill(limited_, [=](std::span<float> row) { LimitRow(row, low, high); });
  if (Gather(limited_, matrix) && std::min(matrix.GetRadius(), radius_) > 0)
    SumTapsRounded(taps_, 0, count, out.data());
  else
    std::fill_n(out.begin(), count, 0.0f);
}

}  // namespace qmr
