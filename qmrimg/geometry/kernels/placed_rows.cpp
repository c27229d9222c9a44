#include "qmrimg/geometry/kernels/placed_rows.h"

#include <algorithm>

#include "qmrimg/geometry/interp_method.h"
#include "qmrimg/geometry/kernels/window_columns.h"

namespace qmr {
namespace {

// Columns that are worked on together; their pixels stay in the first-level cache.
constexpr int kBlock = 64;

// Runs `body(start, count)` over begin..end - 1 in blocks.
template <class Body>
void ForBlocks(int begin, int end, Body&& body) {
  for (int start = begin; start < end; start += kBlock) body(start, std::min(kBlock, end - start));
}

// The corners of a block, the last one repeated where it is not full.
void CopyCorners(const std::vector<std::ptrdiff_t>& first, int start, int count, std::ptrdiff_t (&corner)[kBlock]) {
  for (int i = 0; i < kBlock; ++i) corner[i] = first[static_cast<std::size_t>(start + std::min(i, count - 1))];
}

}  // namespace

PlacedColumns::PlacedColumns(int method, int sourceWidth, const std::vector<double>& x)
    : method_(method), sourceWidth_(sourceWidth), x_(x) {
  const auto refused = std::find_if(x_.begin(), x_.end(), [&](double v) { return !(v <= sourceWidth); });
  count_ = static_cast<int>((method == kNearest ? x_.end() : refused) - x_.begin());
  const std::size_t padded = static_cast<std::size_t>(count_) + kBlock;
  first_.assign(padded, 0);
  fraction_.assign(padded, 0.0);
  switch (method) {
    case kBilinear:
      for (std::size_t i = 0; i < static_cast<std::size_t>(count_); ++i) {
        const int ix = static_cast<int>(x_[i]);
        first_[i] = ix;
        fraction_[i] = x_[i] - ix;
        if (ix + 1 < sourceWidth) end_ = static_cast<int>(i) + 1;
      }
      break;
    case kBicubic:
      SetWindow<BicubicTaps>();
      break;
    case kLanczos2:
      SetWindow<Lanczos2Taps>();
      break;
    case kLanczos3:
      SetWindow<Lanczos3Taps>();
      break;
    case kNearest:
      for (std::size_t i = 0; i < static_cast<std::size_t>(count_); ++i)
        first_[i] = std::clamp(TruncateToInt(x_[i] + 0.5), 0, sourceWidth - 1);
      break;
    default:
      count_ = 0;
      break;
  }
}

template <class Taps>
void PlacedColumns::SetWindow() {
  for (int k = 0; k < Taps::kTaps; ++k) weights_[static_cast<std::size_t>(k)].assign(first_.size(), 0.0);
  for (int i = 0; i < count_; ++i) {
    const std::size_t column = static_cast<std::size_t>(i);
    const int ix = static_cast<int>(x_[column]);
    double weights[Taps::kTaps];
    Taps::Weights(x_[column] - ix, weights, 1);
    for (int k = 0; k < Taps::kTaps; ++k) weights_[static_cast<std::size_t>(k)][column] = weights[k];
    const int first = ix - Taps::kBefore;
    first_[column] = first;
    if (first < 0) begin_ = i + 1;
    if (first + Taps::kTaps <= sourceWidth_) end_ = i + 1;
  }
  end_ = std::max(begin_, end_);
}

template <int Taps>
void PlacedColumns::Sums(const float* row, double* out) const {
  const auto border = [&](int i) {
    const std::size_t column = static_cast<std::size_t>(i);
    double sum = 0.0;
    for (std::size_t k = 0; k < Taps; ++k) {
      const std::ptrdiff_t x =
          std::clamp<std::ptrdiff_t>(first_[column] + static_cast<std::ptrdiff_t>(k), 0, sourceWidth_ - 1);
      sum += static_cast<double>(row[x]) * weights_[k][column];
    }
    out[i] = sum;
  };
  for (int i = 0; i < begin_; ++i) border(i);
  for (int i = end_; i < count_; ++i) border(i);

  float pixels[Taps][kBlock];
  std::ptrdiff_t corner[kBlock];
  ForBlocks(begin_, end_, [&](int start, int count) {
    CopyCorners(first_, start, count, corner);
    GatherColumns<Taps, kBlock>(row, corner, pixels[0]);
    const double* weights[Taps];
    for (std::size_t k = 0; k < Taps; ++k) weights[k] = weights_[k].data() + start;
    double* const to = out + start;
#pragma omp simd
    for (int i = 0; i < count; ++i) {
      double sum = static_cast<double>(pixels[0][i]) * weights[0][i];
      for (int k = 1; k < Taps; ++k) sum += static_cast<double>(pixels[k][i]) * weights[k][i];
      to[i] = sum;
    }
  });
}

template void PlacedColumns::Sums<4>(const float*, double*) const;
template void PlacedColumns::Sums<6>(const float*, double*) const;

void PlacedColumns::Bilinear(const PlaneRows& plane, double y, float* out) const {
  const int iy = static_cast<int>(y);
  const double fy = y - iy;
  const auto row = [&](int r) { return plane.rows[std::clamp(r, 0, plane.height - 1)]; };
  const float* const rows[2] = {row(iy), row(fy == 0.0 ? iy : iy + 1)};
  float pixels[2][2][kBlock];
  float samples[kBlock];
  std::ptrdiff_t corner[kBlock];
  ForBlocks(0, end_, [&](int start, int count) {
    CopyCorners(first_, start, count, corner);
    for (int r = 0; r < 2; ++r) GatherColumns<2, kBlock>(rows[r], corner, pixels[r][0]);
    const double* const fraction = fraction_.data() + start;
#pragma omp simd
    for (int i = 0; i < kBlock; ++i) {
      const double fx = fraction[i];
      const double p00 = pixels[0][0][i];
      const double p01 = pixels[1][0][i];
      const double p10 = fx == 0.0 ? p00 : static_cast<double>(pixels[0][1][i]);
      const double p11 = fx == 0.0 ? p01 : static_cast<double>(pixels[1][1][i]);
      const double blend = BlendCorners(p00, p10, p01, p11, fx, fy);
      samples[i] = static_cast<float>(fx == 0.0 && fy == 0.0 ? p00 : blend);
    }
    std::copy_n(samples, count, out + start);
  });
  for (int i = end_; i < count_; ++i) out[i] = SampleBilinear(plane, x_[static_cast<std::size_t>(i)], y);
}

void PlacedColumns::Nearest(const PlaneRows& plane, double y, float* out) const {
  const float* const row = plane.rows[std::clamp(TruncateToInt(y + 0.5), 0, plane.height - 1)];
  for (int i = 0; i < count_; ++i) out[i] = row[first_[static_cast<std::size_t>(i)]];
}

}  // namespace qmr
