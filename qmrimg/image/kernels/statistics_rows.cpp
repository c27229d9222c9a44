#include "qmrimg/image/kernels/statistics_rows.h"

namespace qmr {

void AddRow(std::span<const float> row, bool start, PlaneStatistics& statistics) {
  if (row.empty()) return;
  float min = start ? row[0] : statistics.min;
  float max = start ? row[0] : statistics.max;
  float sum = statistics.sum;
  for (const float v : row) {
    min = v < min ? v : min;
    max = v > max ? v : max;
    sum += v;
  }
  statistics.min = min;
  statistics.max = max;
  statistics.sum = sum;
}

void AddNonZeroRow(std::span<const float> row, PlaneStatistics& statistics) {
  PlaneStatistics s = statistics;
  for (const float v : row) {
    if (v == 0.0f) continue;
    s.min = v < s.min ? v : s.min;
    s.max = v > s.max ? v : s.max;
    s.sum += v;
    ++s.count;
  }
  statistics = s;
}

float SumFloat(std::span<const float> row) {
  float sum = 0.0f;
  for (const float v : row) sum += v;
  return sum;
}

double SumDouble(std::span<const float> row) {
  double sum = 0.0;
  for (const float v : row) sum += v;
  return sum;
}

double SumFloatSquares(std::span<const float> row) {
  double sum = 0.0;
  for (const float v : row) sum += v * v;
  return sum;
}

}  // namespace qmr
