#include "qmrimg/geometry/scaled_rows.h"

#include <algorithm>
#include <cstddef>

#include "qmrimg/geometry/interp_method.h"
#include "qmrimg/geometry/kernels/shift_rows.h"

namespace qmr {

ScaledRows::ScaledRows(const PlacedColumns& columns, const PlaneRows& plane)
    : columns_(columns), plane_(plane), sumRows_(kMostTaps, -1) {
  const int method = columns.Method();
  if (method == kBicubic || method == kLanczos2 || method == kLanczos3)
    sums_.resize(static_cast<std::size_t>(kMostTaps) * static_cast<std::size_t>(columns.Count()));
}

const double* ScaledRows::SumsOf(int row, int taps) {
  // Rows of one window are consecutive and never share a slot.
  const std::size_t slot = static_cast<std::size_t>(row % taps);
  double* const sums = sums_.data() + slot * static_cast<std::size_t>(columns_.Count());
  if (sumRows_[slot] != row) {
    if (taps == 4)
      columns_.Sums<4>(plane_.rows[row], sums);
    else
      columns_.Sums<6>(plane_.rows[row], sums);
    sumRows_[slot] = row;
  }
  return sums;
}

template <class Taps>
void ScaledRows::Window(double y, float* out) {
  const int iy = static_cast<int>(y);
  double weights[Taps::kTaps];
  Taps::Weights(y - iy, weights, 1);
  const double* sums[Taps::kTaps];
  for (int r = 0; r < Taps::kTaps; ++r)
    sums[r] = SumsOf(std::clamp(iy - Taps::kBefore + r, 0, plane_.height - 1), Taps::kTaps);
  VerticalSums<Taps::kTaps>(sums, weights, columns_.Count(), out);
}

void ScaledRows::Row(double y, std::span<float> out) {
  const int method = columns_.Method();
  const bool refused = method != kNearest && !(y <= plane_.height);
  const std::size_t sampled = refused ? 0 : std::min(static_cast<std::size_t>(columns_.Count()), out.size());
  std::fill(out.begin() + static_cast<std::ptrdiff_t>(sampled), out.end(), 0.0f);
  if (sampled < static_cast<std::size_t>(columns_.Count()) || sampled == 0) return;
  switch (method) {
    case kBilinear:
      columns_.Bilinear(plane_, y, out.data());
      break;
    case kBicubic:
      Window<BicubicTaps>(y, out.data());
      break;
    case kLanczos2:
      Window<Lanczos2Taps>(y, out.data());
      break;
    case kLanczos3:
      Window<Lanczos3Taps>(y, out.data());
      break;
    case kNearest:
      columns_.Nearest(plane_, y, out.data());
      break;
    default:
      break;
  }
}

}  // namespace qmr
