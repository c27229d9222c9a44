#include "qmrimg/image/kernels/transformed_row.h"

namespace qmr {
namespace {

struct Positions {
  double x[TransformedPiece::kMost];
  double y[TransformedPiece::kMost];
};

template <class Formula>
void PlaceWith(int left, int count, Positions& at, Formula formula) {
  double* const px = at.x;
  double* const py = at.y;
#pragma omp simd
  for (int i = 0; i < count; ++i) {
    const Position source = formula(left + i);
    px[i] = source.x;
    py[i] = source.y;
  }
}

void PlaceColumns(const Placement& placement, int left, int y, int count, Positions& at) {
  const Placement p = placement;
  if (IsTurned(p))
    PlaceWith(left, count, at, [y, p](int x) { return TurnedPosition(x, y, p); });
  else if (p.scale == 1.0)
    PlaceWith(left, count, at, [y, p](int x) { return ShiftedPosition(x, y, p); });
  else
    PlaceWith(left, count, at, [y, p](int x) { return ScaledPosition(x, y, p); });
}

}  // namespace

void BilinearRun(const float* row0, const float* row1, const double* fx, double fy, int count, float* out) {
#pragma omp simd
  for (int i = 0; i < count; ++i) out[i] = Bilinear(row0[i], row0[i + 1], row1[i], row1[i + 1], fx[i], fy);
}

void TransformedPiece::Cells::Find(const double* positions, int count, int size) {
  int* const to = first;
  int* const next = second;
  double* const distance = fraction;
#pragma omp simd
  for (int i = 0; i < count; ++i) {
    const Cell cell = CellOf(positions[i], size);
    to[i] = cell.first;
    next[i] = cell.second;
    distance[i] = cell.fraction;
  }
}

ColumnRun TransformedPiece::Place(const Placement& placement, int left, int y, int count, int width, int height) {
  Positions at;
  PlaceColumns(placement, left, y, count, at);
  // Positions are monotonic on both axes, rounding included: those inside are one run.
  const ColumnRun run = RunInside(0, count, [&](int i) { return IsInside({at.x[i], at.y[i]}, width, height); });
  count_ = run.Length();
  columns_.Find(at.x + run.begin, count_, width);
  lines_.Find(at.y + run.begin, count_, height);
  level_ = 0;
  if (IsTurned(placement)) return run;
  const int* const first = columns_.first;
  while (level_ < count_ && first[level_] == first[0] + level_ && columns_.second[level_] > first[level_]) ++level_;
  return run;
}

void TransformedPiece::Sample(const float* const* rows, float* out) const {
  if (level_ > 0) {
    const int column = columns_.first[0];
    BilinearRun(rows[lines_.first[0]] + column, rows[lines_.second[0]] + column, columns_.fraction, lines_.fraction[0],
                level_, out);
  }
  for (int i = level_; i < count_; ++i) {
    const float* const row0 = rows[lines_.first[i]];
    const float* const row1 = rows[lines_.second[i]];
    const int x0 = columns_.first[i];
    const int x1 = columns_.second[i];
    out[i] = Bilinear(row0[x0], row0[x1], row1[x0], row1[x1], columns_.fraction[i], lines_.fraction[i]);
  }
}

}  // namespace qmr
