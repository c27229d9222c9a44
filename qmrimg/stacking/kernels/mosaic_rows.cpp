#include "qmrimg/stacking/kernels/mosaic_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "qmrimg/image/pixel_math.h"

namespace qmr {

// ---- Reading -------------------------------------------------------------------------------------------------------

MosaicImage::MosaicImage(const RowTable& rows, bool colours, const Placement& placement, bool to256,
                         const RowLevels (&levels)[kMostMosaicPlanes], float fill, int planes, int left, int count)
    : rows_(rows),
      colours_(colours),
      placement_(placement),
      to256_(to256),
      fill_(fill),
      planes_(planes),
      left_(left),
      count_(count) {
  std::copy_n(levels, kMostMosaicPlanes, levels_);
  if (IsTurned(placement_)) return;
  columns_ = RunInside(left_, count_, [&](int column) {
    const double x = ShiftedPosition(column, 0, placement_).x;
    return 0.0 <= x && x < rows_.Width();
  });
  cells_ = ColumnCells(left_ + columns_.begin, columns_.Length(), placement_.dx, rows_.Width());
}

ColumnRun MosaicImage::SampleShifted(int y, int planes, float* const* out) const {
  const double sourceY = ShiftedPosition(0, y, placement_).y;
  if (!(0.0 <= sourceY && sourceY < rows_.Height())) return {0, 0};
  const Cell line = CellOf(sourceY, rows_.Height());
  for (int p = 0; p < planes; ++p) {
    const float* const* const rows = rows_.Plane(p);
    cells_.Sample(rows[line.first], rows[line.second], line.fraction, 0, columns_.Length(), out[p] + columns_.begin);
  }
  return columns_;
}

ColumnRun MosaicImage::SampleTurned(int y, int planes, float* const* out) const {
  ColumnRun covered = {count_, count_};
  TransformedPiece piece;
  for (int start = 0; start < count_; start += TransformedPiece::kMost) {
    const int length = std::min(TransformedPiece::kMost, count_ - start);
    const ColumnRun run = piece.Place(placement_, left_ + start, y, length, rows_.Width(), rows_.Height());
    if (run.Length() == 0) continue;
    covered = {std::min(covered.begin, start + run.begin), start + run.end};
    for (int p = 0; p < planes; ++p) piece.Sample(rows_.Plane(p), out[p] + start + run.begin);
  }
  return covered;
}

ColumnRun MosaicImage::Row(int y, float* const* out, float* scratch) const {
  const int sampled = colours_ ? kMostMosaicPlanes : 1;
  float* const rows[kMostMosaicPlanes] = {out[0], planes_ == 1 ? scratch : out[1],
                                          planes_ == 1 ? scratch + count_ : out[2]};
  const ColumnRun covered = IsTurned(placement_) ? SampleTurned(y, sampled, rows) : SampleShifted(y, sampled, rows);
  const int width = covered.Length();
  if (to256_) {
    for (int p = 0; p < sampled; ++p) {
      float* const row = rows[p] + covered.begin;
      To256Row({row, static_cast<std::size_t>(width)}, row, levels_[p]);
    }
  }
  if (colours_ && planes_ == 1) {
    float* const r = rows[0] + covered.begin;
    const float* const g = rows[1] + covered.begin;
    const float* const b = rows[2] + covered.begin;
#pragma omp simd
    for (int i = 0; i < width; ++i) r[i] = static_cast<float>(b[i] * 0.114 + (g[i] * 0.587 + r[i] * 0.299));
  }
  for (int p = 0; p < planes_; ++p) {
    float* const row = out[p];
    if (p >= sampled) std::copy(out[0] + covered.begin, out[0] + covered.end, row + covered.begin);
    std::fill(row, row + covered.begin, fill_);
    std::fill(row + covered.end, row + count_, fill_);
  }
  return covered;
}

// ---- Choosing ------------------------------------------------------------------------------------------------------

namespace {

// `first(x)` says whether the canvas takes a.
template <class First>
void ChooseBy(int planes, float* const* a, const float* const* b, int count, First first) {
  if (planes == 1) {
    float* const a0 = a[0];
    const float* const b0 = b[0];
#pragma omp simd
    for (int x = 0; x < count; ++x) a0[x] = first(x) ? a0[x] : b0[x];
    return;
  }
  float* const a0 = a[0];
  float* const a1 = a[1];
  float* const a2 = a[2];
  const float* const b0 = b[0];
  const float* const b1 = b[1];
  const float* const b2 = b[2];
#pragma omp simd
  for (int x = 0; x < count; ++x) {
    const bool takesA = first(x);
    a0[x] = takesA ? a0[x] : b0[x];
    a1[x] = takesA ? a1[x] : b1[x];
    a2[x] = takesA ? a2[x] : b2[x];
  }
}

}  // namespace

void ChooseRow(MosaicOverlap overlap, const MosaicMask& mask, int planes, float* const* a, const float* const* b,
               int count) {
  const bool colour = planes == kMostMosaicPlanes;
  const float* const a0 = a[0];
  const float* const a1 = colour ? a[1] : nullptr;
  const float* const a2 = colour ? a[2] : nullptr;
  const float* const b0 = b[0];
  const float* const b1 = colour ? b[1] : nullptr;
  const float* const b2 = colour ? b[2] : nullptr;
  const MosaicMask m = mask;
  switch (overlap) {
    case MosaicOverlap::kBase:
      break;
    case MosaicOverlap::kAddition:
      for (int p = 0; p < planes; ++p) std::copy_n(b[p], count, a[p]);
      break;
    case MosaicOverlap::kAdditionButMask:
      if (colour)
        ChooseBy(planes, a, b, count, [=](int x) {
          return std::fabs(m.colour[0] - b0[x]) + std::fabs(m.colour[1] - b1[x]) + std::fabs(m.colour[2] - b2[x]) <
                 m.tolerance;
        });
      else
        ChooseBy(planes, a, b, count, [=](int x) { return std::fabs(m.colour[0] - b0[x]) < m.tolerance; });
      break;
    // The addition wins a tie.
    case MosaicOverlap::kBrighter:
      if (colour)
        ChooseBy(planes, a, b, count, [=](int x) {
          return BrightInPlaneOrder(a0[x], a1[x], a2[x]) > BrightInPlaneOrder(b0[x], b1[x], b2[x]);
        });
      else
        ChooseBy(planes, a, b, count, [=](int x) { return a0[x] > b0[x]; });
      break;
    case MosaicOverlap::kDarker:
      if (colour)
        ChooseBy(planes, a, b, count, [=](int x) {
          return BrightInPlaneOrder(a0[x], a1[x], a2[x]) < BrightInPlaneOrder(b0[x], b1[x], b2[x]);
        });
      else
        ChooseBy(planes, a, b, count, [=](int x) { return a0[x] < b0[x]; });
      break;
  }
}

void MeanOfRows(float* a, const float* b, int count, const RowLevels* levels) {
  if (!levels) {
#pragma omp simd
    for (int x = 0; x < count; ++x) a[x] = static_cast<float>((static_cast<double>(a[x]) + b[x]) * 0.5);
    return;
  }
  const RowLevels l = *levels;
#pragma omp simd
  for (int x = 0; x < count; ++x)
    a[x] = static_cast<float>(ToRaw((static_cast<double>(a[x]) + b[x]) * 0.5, l.min, l.range));
}

void RowToRaw(float* row, int count, const RowLevels& levels) {
  const RowLevels l = levels;
#pragma omp simd
  for (int x = 0; x < count; ++x) row[x] = static_cast<float>(ToRaw(row[x], l.min, l.range));
}

}  // namespace qmr
