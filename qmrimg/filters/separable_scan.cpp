#include "qmrimg/filters/separable_scan.h"

#include <algorithm>
#include <cstddef>

#include "qmrimg/filters/kernels/block_rows.h"
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
  while (zeros_ < radius_ && kernel_[static_cast<std::size_t>(zeros_)] == 0.0 &&
         kernel_[kernel_.size() - 1 - static_cast<std::size_t>(zeros_)] == 0.0)
    ++zeros_;
  ringRows_ = static_cast<int>(kernel_.size()) + kRowsAtOnce - 1;
  wide_.resize(stride_ + kernel_.size() - 1);
  ring_.resize(stride_ * static_cast<std::size_t>(ringRows_));
  out_.resize(stride_ * kRowsAtOnce);
  finite_.resize(static_cast<std::size_t>(ringRows_), 1);
  window_.resize(static_cast<std::size_t>(ringRows_));
}

std::span<const float> SeparableScan::Row(int y) {
  if (columns_ == 0 || y < 0 || y >= image_.GetHeight()) return {};
  if (y < outFirst_ || y >= outFirst_ + outCount_) {
    const int count = std::clamp(bottom_ - y, 1, kRowsAtOnce);
    const std::int64_t first = static_cast<std::int64_t>(y) - radius_;
    const std::int64_t last = static_cast<std::int64_t>(y) + count + radius_;
    FillRing(first, last);
    bool finite = true;
    for (std::int64_t r = first; r < last; ++r) {
      window_[static_cast<std::size_t>(r - first)] = RingRow(r);
      finite = finite && finite_[RingSlot(r)];
    }
    // A sum in double is never -0, so that it takes no notice of a term of 0.
    const int skipped = finite ? zeros_ : 0;
    float* out[kRowsAtOnce];
    for (int r = 0; r < kRowsAtOnce; ++r) out[r] = out_.data() + static_cast<std::size_t>(r) * stride_;
    FilterAcrossRows(window_.data() + skipped, Taps(skipped), count, stride_, out);
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
    const std::span<const float> pixels = ReadRow(image_, row, plane_, 0, image_.GetWidth());
    const std::span<float> filtered(RingRow(ringLast_), stride_);
    const int skipped = zeros_ > 0 && AllFinite(pixels) ? zeros_ : 0;
    WidenRow(pixels, left_, radius_, wide_);
    FilterAlongRow(wide_.data() + skipped, Taps(skipped), filtered);
    if (zeros_ > 0) finite_[RingSlot(ringLast_)] = AllFinite(filtered);
  }
  ringFirst_ = std::max(ringFirst_, ringLast_ - ringRows_);
}

std::size_t SeparableScan::RingSlot(std::int64_t y) const {
  return static_cast<std::size_t>((y % ringRows_ + ringRows_) % ringRows_);
}

std::span<const double> SeparableScan::Taps(int skipped) const {
  const auto ends = static_cast<std::size_t>(skipped);
  return std::span(kernel_).subspan(ends, kernel_.size() - 2 * ends);
}

}  // namespace qmr
