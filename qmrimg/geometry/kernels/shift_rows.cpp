#include "qmrimg/geometry/kernels/shift_rows.h"

#include <algorithm>
#include <cstdint>

namespace qmr {
namespace {

// Positions from `column` on that lie in the same binade; 0 and 1 are alone in theirs.
int ColumnsToNextPower(int column, int limit) {
  std::int64_t power = 1;
  while (power <= column) power *= 2;
  return static_cast<int>(std::min<std::int64_t>(power - column, limit));
}

// The part of 0..count - 1 whose taps from `before` columns back to `after` columns ahead all exist.
void InnerRange(int column, int before, int after, int width, int count, int* begin, int* end) {
  *begin = std::clamp(before - column, 0, count);
  *end = std::clamp(width - after - column, *begin, count);
}

}  // namespace

void ShiftSegments::Accumulate(double start, int count) {
  size_ = 0;
  double x = start;
  for (int done = 0; done < count;) {
    const int column = static_cast<int>(x);
    const int n = ColumnsToNextPower(column, count - done);
    items_[static_cast<std::size_t>(size_++)] = {done, n, column, x - column};
    done += n;
    x = (x + (n - 1)) + 1.0;
  }
}

void ShiftSegments::Add(int column, double fraction, int count) {
  size_ = 0;
  for (int done = 0; done < count;) {
    const double x = (column + done) + fraction;
    const int first = static_cast<int>(x);
    const int n = ColumnsToNextPower(column + done, count - done);
    items_[static_cast<std::size_t>(size_++)] = {done, n, first, x - first};
    done += n;
  }
}

template <int Taps>
void HorizontalSums(const float* row, int width, int column, int count, const double* weights, double* out) {
  constexpr int kBefore = Taps / 2 - 1;
  double w[Taps];
  std::copy_n(weights, Taps, w);
  int begin, end;
  InnerRange(column, kBefore, Taps - 1 - kBefore, width, count, &begin, &end);
  const auto border = [&](int i) {
    double sum = 0.0;
    for (int k = 0; k < Taps; ++k)
      sum += static_cast<double>(row[std::clamp(column + i - kBefore + k, 0, width - 1)]) * w[k];
    out[i] = sum;
  };
  for (int i = 0; i < begin; ++i) border(i);
  const float* const from = row + (column - kBefore);
  double* const to = out;
#pragma omp simd
  for (int i = begin; i < end; ++i) {
    double sum = static_cast<double>(from[i]) * w[0];
    for (int k = 1; k < Taps; ++k) sum += static_cast<double>(from[i + k]) * w[k];
    to[i] = sum;
  }
  for (int i = end; i < count; ++i) border(i);
}

template <int Taps>
void VerticalSums(const double* const* sums, const double* weights, int count, float* out) {
  double w[Taps];
  const double* s[Taps];
  std::copy_n(weights, Taps, w);
  std::copy_n(sums, Taps, s);
#pragma omp simd
  for (int i = 0; i < count; ++i) {
    // Begins at 0.0, so that a sum of negative zeros is 0.
    double sum = 0.0;
    for (int r = 0; r < Taps; ++r) sum += w[r] * s[r][i];
    out[i] = static_cast<float>(sum);
  }
}

template void HorizontalSums<4>(const float*, int, int, int, const double*, double*);
template void HorizontalSums<6>(const float*, int, int, int, const double*, double*);
template void VerticalSums<4>(const double* const*, const double*, int, float*);
template void VerticalSums<6>(const double* const*, const double*, int, float*);

void ShiftBilinear(const PlaneRows& plane, const ShiftSegment& segment, double y, float* out) {
  const int iy = static_cast<int>(y);
  const double fx = segment.fraction;
  const double fy = y - iy;
  const int count = segment.count;
  int begin, end;
  InnerRange(segment.column, 0, fx == 0.0 ? 0 : 1, plane.width, count, &begin, &end);
  const auto row = [&](int r) { return plane.rows[std::clamp(r, 0, plane.height - 1)] + segment.column; };
  const float* const upper = row(iy);
  const float* const lower = row(fy == 0.0 ? iy : iy + 1);
  for (int i = 0; i < begin; ++i) out[i] = SampleBilinear(plane, (segment.column + i) + fx, y);
  if (fx == 0.0 && fy == 0.0) {
    std::copy(upper + begin, upper + end, out + begin);
  } else {
    const int step = fx == 0.0 ? 0 : 1;
#pragma omp simd
    for (int i = begin; i < end; ++i)
      out[i] = static_cast<float>(BlendCorners(upper[i], upper[i + step], lower[i], lower[i + step], fx, fy));
  }
  for (int i = end; i < count; ++i) out[i] = SampleBilinear(plane, (segment.column + i) + fx, y);
}

void ShiftNearest(const PlaneRows& plane, const ShiftSegment& segment, double y, float* out) {
  const float* const row = plane.rows[std::clamp(TruncateToInt(y + 0.5), 0, plane.height - 1)];
  const int last = plane.width - 1;
  const double fx = segment.fraction;
  for (int i = 0; i < segment.count; ++i)
    out[i] = row[std::clamp(static_cast<int>((segment.column + i) + fx + 0.5), 0, last)];
}

}  // namespace qmr
