#include "qmrimg/filters/separable_scan.h"

#include <algorithm>
#include <cstddef>

#include "qmrimg/filters/kernels/separable_rows.h"
#include "qmrimg/image/row_access.h"

namespace qmr {

SeparableScan::SeparableScan(const CImage& image, int plane, std::span<const float> kernel, int left, int right,
                             int bottom)
    : image_(image),
      plane_(plane),
      radius_(static_cast<int>(kernel.size()) / 2),
      left_(std::max(left, 0)),
      bottom_(std::min(bottom, image.GetHeight())),
      kernel_(kernel.begin(), kernel.end()) {
  // Where there is a last row, there are all of them.
  const bool any = !kernel.empty() && image.GetBitsPixel() == -32 &&
                   !ReadRow(image, image.GetHeight() - 1, plane, 0, image.GetWidth()).empty();
  columns_ = any ? std::max(std::min(right, image.GetWidth()) - left_, 0) : 0;
  if (columns_ == 0) return;
  // Rows of whole blocks spare the passes a special case at their end.
  stride_ = (static_cast<std::size_t>(columns_) + kColumnsAtOnce - 1) / kColumnsAtOnce * kColumnsAtOnce;
  ringRows_ = static_cast<int>(kernel_.size()) + kRowsAtOnce - 1;
  wide_.resize(stride_ + kernel_.size() - 1);
  ring_.resize(stride_ * static_cast<std::size_t>(ringRows_));
  out_.resize(stride_ * kRowsAtOnce);
  window_.resize(static_cast<std::size_t>(ringRows_));
}

std::span<const float> SeparableScan::Row(int y) {
  if (columns_ == 0 || y < 0 || y >= image_.GetHeight()) return {};
  if (y < outFirst_ || y >= outFirst_ + outCount_) {
    const int count = std::clamp(bottom_ - y, 1, kRowsAtOnce);
    const std::int64_t first = static_cast<std::int64_t>(y) - radius_;
    const std::int64_t last = static_cast<std::int64_t>(y) + count + radius_;
    FillRing(first, last);
    for (std::int64_t r = first; r < last; ++r) window_[static_cast<std::size_t>(r - first)] = RingRow(r);
    float* out[kRowsAtOnce];
    for (int r = 0; r < kRowsAtOnce; ++r) out[r] = out_.data() + static_cast<std::size_t>(r) * stride_;
    FilterAcrossRows(window_.data(), kernel_, count, stride_, out);
    outFirst_ = y;
    outCount_ = count;
  }
  return {out_.data() + static_cast<std::size_t>(y - outFirst_) * stride_, static_cast<std::size_t>(columns_)};
}

void SeparableScan::FillRing(std::int64_t first, std::int64_t last) {
  if (first < ringFirst_ || first > ringLast_) ringFirst_ = ringLast_ = first;
  for (; ringLast_ < last; ++ringLast_) {
    const int row = SeparableSourceRow(ringLast_, image_.GetHeight());
    // All of the row: the columns beside the wanted ones are taps, too.
    WidenRow(ReadRow(image_, row, plane_, 0, image_.GetWidth()), left_, radius_, wide_);
    FilterAlongRow(wide_.data(), kernel_, {RingRow(ringLast_), stride_});
  }
  ringFirst_ = std::max(ringFirst_, ringLast_ - ringRows_);
}

float* SeparableScan::RingRow(std::int64_t y) {
  const std::int64_t row = (y % ringRows_ + ringRows_) % ringRows_;
  return ring_.data() + static_cast<std::size_t>(row) * stride_;
}

}  // namespace qmr
