#include "qmrimg/geometry/row_engine.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include "qmrimg/geometry/interp_method.h"
#include "qmrimg/geometry/kernels/turned_rows.h"

namespace qmr {
namespace {

bool Same(const ShiftedColumns& a, const ShiftedColumns& b) {
  return a.accumulate == b.accumulate &&
         std::bit_cast<std::uint64_t>(a.start) == std::bit_cast<std::uint64_t>(b.start) && a.column == b.column &&
         a.count == b.count;
}

std::array<double, 6> WeightsOf(int method, double fraction) {
  std::array<double, 6> weights = {};
  switch (method) {
    case kBicubic:
      BicubicTaps::Weights(fraction, weights.data(), 1);
      break;
    case kLanczos2:
      Lanczos2Taps::Weights(fraction, weights.data(), 1);
      break;
    case kLanczos3:
      Lanczos3Taps::Weights(fraction, weights.data(), 1);
      break;
    default:
      break;
  }
  return weights;
}

}  // namespace

void RowEngine::Reset() {
  method_ = -1;
  std::fill(sumRows_.begin(), sumRows_.end(), -1);
}

void RowEngine::SetColumns(int method, const ShiftedColumns& columns) {
  if (method == method_ && Same(columns, columns_)) return;
  method_ = method;
  columns_ = columns;
  std::fill(sumRows_.begin(), sumRows_.end(), -1);
  if (columns.accumulate)
    segments_.Accumulate(columns.start, columns.count);
  else
    segments_.Add(columns.column, columns.start, columns.count);
  weights_.clear();
  for (const ShiftSegment& segment : segments_) weights_.push_back(WeightsOf(method, segment.fraction));
}

template <class Taps>
const double* RowEngine::SumsOf(const PlaneRows& plane, int planeIndex, int row) {
  const std::size_t length = static_cast<std::size_t>(columns_.count);
  const std::size_t slots = static_cast<std::size_t>(planeIndex + 1) * kMaxTaps;
  if (sums_.size() < slots * length || sumRows_.size() < slots) {
    // Rows move when the length changes, so nothing cached survives.
    sums_.resize(slots * length);
    sumRows_.assign(slots, -1);
  }
  // Rows of one window are consecutive and never share a slot.
  const std::size_t slot =
      static_cast<std::size_t>(planeIndex) * kMaxTaps + static_cast<std::size_t>(row % Taps::kTaps);
  double* const sums = sums_.data() + slot * length;
  if (sumRows_[slot] != row) {
    const std::array<double, kMaxTaps>* weights = weights_.data();
    for (const ShiftSegment& s : segments_)
      HorizontalSums<Taps::kTaps>(plane.rows[row], plane.width, s.column, s.count, (weights++)->data(), sums + s.first);
    sumRows_[slot] = row;
  }
  return sums;
}

template <class Taps>
void RowEngine::ShiftedWindow(const PlaneRows& plane, int planeIndex, double y, float* out) {
  const int iy = static_cast<int>(y);
  double weights[Taps::kTaps];
  Taps::Weights(y - iy, weights, 1);
  const double* sums[Taps::kTaps];
  // The first call makes room for all rows of the plane: no pointer moves afterwards.
  for (int r = 0; r < Taps::kTaps; ++r)
    sums[r] = SumsOf<Taps>(plane, planeIndex, std::clamp(iy - Taps::kBefore + r, 0, plane.height - 1));
  VerticalSums<Taps::kTaps>(sums, weights, columns_.count, out);
}

void RowEngine::Shifted(int method, const PlaneRows& plane, int planeIndex, const ShiftedColumns& columns, double y,
                        float* out) {
  if (columns.count <= 0) return;
  SetColumns(method, columns);
  switch (method) {
    case kBilinear:
      for (const ShiftSegment& s : segments_) ShiftBilinear(plane, s, y, out + s.first);
      break;
    case kBicubic:
      ShiftedWindow<BicubicTaps>(plane, planeIndex, y, out);
      break;
    case kLanczos2:
      ShiftedWindow<Lanczos2Taps>(plane, planeIndex, y, out);
      break;
    case kLanczos3:
      ShiftedWindow<Lanczos3Taps>(plane, planeIndex, y, out);
      break;
    case kNearest:
      for (const ShiftSegment& s : segments_) ShiftNearest(plane, s, y, out + s.first);
      break;
    default:
      std::fill_n(out, columns.count, 0.0f);
      break;
  }
}

void RowEngine::PlanTurned(const TurnedColumns& columns, int limitX, int limitY, bool closed, int* begin, int* end) {
  const int count = std::max(columns.count, 0);
  if (turnedX_.size() < static_cast<std::size_t>(count)) {
    turnedX_.resize(static_cast<std::size_t>(count));
    turnedY_.resize(static_cast<std::size_t>(count));
  }
  double* const x = turnedX_.data();
  double* const y = turnedY_.data();
  TurnedPositions(columns.x, columns.y, columns.stepX, columns.stepY, count, x, y);
  const auto inside = [&](int i) {
    if (!(x[i] >= 0.0 && y[i] >= 0.0)) return false;
    return closed ? x[i] <= limitX && y[i] <= limitY : x[i] < limitX && y[i] < limitY;
  };
  int first = 0;
  while (first < count && !inside(first)) ++first;
  int last = count;
  while (last > first && !inside(last - 1)) --last;
  *begin = first;
  *end = last;
}

void RowEngine::Turned(int method, const PlaneRows* planes, int planeCount, int begin, int end,
                       float* const* out) const {
  if (end <= begin || planeCount <= 0) return;
  const TurnedRun run = {turnedX_.data() + begin, turnedY_.data() + begin, end - begin, planes, planeCount, out};
  switch (method) {
    case kBilinear:
      TurnedBilinear(run);
      break;
    case kBicubic:
      TurnedWindow<BicubicTaps>(run);
      break;
    case kLanczos2:
      TurnedWindow<Lanczos2Taps>(run);
      break;
    case kLanczos3:
      TurnedWindow<Lanczos3Taps>(run);
      break;
    case kNearest:
      TurnedNearest(run);
      break;
    default:
      for (int p = 0; p < planeCount; ++p) std::fill_n(out[p], end - begin, 0.0f);
      break;
  }
}

float* RowEngine::Scratch(int index, int count) {
  std::vector<float>& row = scratch_[static_cast<std::size_t>(index)];
  if (row.size() < static_cast<std::size_t>(count)) row.resize(static_cast<std::size_t>(count));
  return row.data();
}

}  // namespace qmr
