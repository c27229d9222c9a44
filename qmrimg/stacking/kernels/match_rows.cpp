#include "qmrimg/stacking/kernels/match_rows.h"

#include <algorithm>

namespace qmr {

double SquaresOfRow(const float* object, const float* pattern, float ratio, int count) {
  constexpr int kSums = 16;
  double sums[kSums] = {};
  const int whole = count - count % kSums;
  for (int x = 0; x < whole; x += kSums) {
#pragma omp simd
    for (int i = 0; i < kSums; ++i) {
      const double difference = object[x + i] - ratio * pattern[x + i];
      sums[i] += difference * difference;
    }
  }
  for (int x = whole; x < count; ++x) {
    const double difference = object[x] - ratio * pattern[x];
    sums[x - whole] += difference * difference;
  }
  for (int half = kSums / 2; half > 0; half /= 2) {
    for (int i = 0; i < half; ++i) sums[i] += sums[i + half];
  }
  return sums[0];
}

double AddSquaresBetween(double sum, const float* object, const ColumnCells& columns, const float* row0,
                         const float* row1, double fy, float ratio) {
  constexpr int kChunk = 256;
  float row[kChunk];
  for (int start = 0; start < columns.Count(); start += kChunk) {
    const int count = std::min(kChunk, columns.Count() - start);
    columns.Sample(row0, row1, fy, start, start + count, row);
    const float* const from = object + start;
#pragma omp simd
    for (int i = 0; i < count; ++i) row[i] = from[i] - row[i] * ratio;
    for (int i = 0; i < count; ++i) {
      const double difference = row[i];
      sum += difference * difference;
    }
  }
  return sum;
}

}  // namespace qmr
