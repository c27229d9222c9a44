#include "qmrimg/image/kernels/statistics_rows.h"

#include <algorithm>
#include <cstddef>

namespace qmr {

namespace {

// Zeros of either sign are equal: the first one that was met counts.
float FirstZero(std::span<const float> row, bool start, float before) {
  return !start && before == 0.0f ? before : *std::find(row.begin(), row.end(), 0.0f);
}

}  // namespace

void AddRow(std::span<const float> row, bool start, PlaneStatistics& statistics) {
  if (row.empty()) return;
  // Extremes don't depend on the order of pixels, so columns have lanes of their own; the sum must stay in order.
  constexpr std::size_t kLanes = 16;
  float low[kLanes], high[kLanes];
  std::fill_n(low, kLanes, start ? row[0] : statistics.min);
  std::fill_n(high, kLanes, start ? row[0] : statistics.max);
  float sum = statistics.sum;
  const float* const from = row.data();
  const std::size_t whole = row.size() - row.size() % kLanes;
  for (std::size_t x = 0; x < whole; x += kLanes) {
#pragma omp simd
    for (std::size_t i = 0; i < kLanes; ++i) {
      const float v = from[x + i];
      low[i] = v < low[i] ? v : low[i];
      high[i] = v > high[i] ? v : high[i];
    }
    for (std::size_t i = 0; i < kLanes; ++i) sum += from[x + i];
  }
  for (std::size_t x = whole; x < row.size(); ++x) {
    const float v = from[x];
    low[0] = v < low[0] ? v : low[0];
    high[0] = v > high[0] ? v : high[0];
    sum += v;
  }
  for (std::size_t i = 1; i < kLanes; ++i) {
    low[0] = low[i] < low[0] ? low[i] : low[0];
    high[0] = high[i] > high[0] ? high[i] : high[0];
  }
  statistics.min = low[0] == 0.0f ? FirstZero(row, start, statistics.min) : low[0];
  statistics.max = high[0] == 0.0f ? FirstZero(row, start, statistics.max) : high[0];
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
