#include "qmrimg/stacking/kernels/measure_rows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "qmrimg/levels/kernels/equalize_rows.h"

namespace qmr {
namespace {

constexpr std::size_t kLanes = 16;

// The sum of term(x) for x below `width`.
template <class Term>
double SumInLanes(std::size_t width, const Term& term) {
  double lanes[kLanes] = {};
  const std::size_t whole = width - width % kLanes;
  for (std::size_t x = 0; x < whole; x += kLanes) {
#pragma omp simd
    for (std::size_t i = 0; i < kLanes; ++i) lanes[i] += term(x + i);
  }
  for (std::size_t x = whole; x < width; ++x) lanes[x - whole] += term(x);
  for (std::size_t step = kLanes / 2; step > 0; step /= 2) {
    for (std::size_t i = 0; i < step; ++i) lanes[i] += lanes[i + step];
  }
  return lanes[0];
}

}  // namespace

PixelSums SumRow(std::span<const float> row) {
  PixelSums result;
  const float* const from = row.data();
  float low[kLanes], high[kLanes];
  std::fill_n(low, kLanes, result.min);
  std::fill_n(high, kLanes, result.max);
  const auto take = [&](std::size_t i, float v) {
    low[i] = v < low[i] ? v : low[i];
    high[i] = v > high[i] ? v : high[i];
  };
  const std::size_t whole = row.size() - row.size() % kLanes;
  for (std::size_t x = 0; x < whole; x += kLanes) {
#pragma omp simd
    for (std::size_t i = 0; i < kLanes; ++i) take(i, from[x + i]);
  }
  for (std::size_t x = whole; x < row.size(); ++x) take(x - whole, from[x]);
  for (std::size_t i = 0; i < kLanes; ++i) {
    result.min = std::min(result.min, low[i]);
    result.max = std::max(result.max, high[i]);
  }
  result.sum = SumInLanes(row.size(), [from](std::size_t x) { return static_cast<double>(from[x]); });
  return result;
}

PixelSums Merge(const PixelSums& a, const PixelSums& b) {
  return {std::min(a.min, b.min), std::max(a.max, b.max), a.sum + b.sum};
}

double SumSquaredDeviations(std::span<const float> row, double mean) {
  const float* const from = row.data();
  return SumInLanes(row.size(), [from, mean](std::size_t x) {
    const double d = from[x] - mean;
    return d * d;
  });
}

double SumDifferences(std::span<const float> a, std::span<const float> b) {
  const float *const first = a.data(), *const second = b.data();
  return SumInLanes(a.size(),
                    [first, second](std::size_t x) { return static_cast<double>(std::fabs(first[x] - second[x])); });
}

void CountDigits(std::span<const float> row, const RankDigit& digit, std::int64_t* counts) {
  const std::uint32_t digitMask = (1u << digit.bits) - 1u;
  for (const float v : row) {
    const std::uint32_t order = ValueOrder(v);
    if ((order & digit.knownMask) == digit.known) ++counts[(order >> digit.shift) & digitMask];
  }
}

void SortAscending(std::vector<float>& values) {
  constexpr std::size_t kFewValues = 4096;
  if (values.size() < kFewValues) {
    std::sort(values.begin(), values.end(), [](float a, float b) { return ValueOrder(a) < ValueOrder(b); });
    return;
  }
  // By digits from the lowest one; a digit that all values share is left out.
  constexpr int kDigits = 3, kBits = 11;
  constexpr std::uint32_t kMask = (1u << kBits) - 1u;
  std::vector<std::uint32_t> from(values.size()), to(values.size());
  std::vector<std::array<std::size_t, kMask + 1>> places(kDigits);
  for (std::size_t i = 0; i < values.size(); ++i) {
    from[i] = ValueOrder(values[i]);
    for (int d = 0; d < kDigits; ++d) ++places[static_cast<std::size_t>(d)][(from[i] >> (d * kBits)) & kMask];
  }
  for (int d = 0; d < kDigits; ++d) {
    auto& next = places[static_cast<std::size_t>(d)];
    const int shift = d * kBits;
    if (next[(from[0] >> shift) & kMask] == from.size()) continue;
    std::size_t place = 0;
    for (std::size_t& entry : next) {
      const std::size_t count = entry;
      entry = place;
      place += count;
    }
    for (const std::uint32_t order : from) to[next[(order >> shift) & kMask]++] = order;
    from.swap(to);
  }
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = OrderedValue(from[i]);
}

SortedStatistics StatisticsInOrder(std::span<const float> sorted) {
  if (sorted.empty()) return {};
  // Of an infinite pixel, too.
  if (sorted.size() == 1) return {sorted[0], 0.0};
  const double count = static_cast<double>(sorted.size());
  double sum = 0.0;
  for (const float v : sorted) sum += v;
  const double mean = sum / count;
  double squares = 0.0;
  for (const float v : sorted) squares += (v - mean) * (v - mean);
  return {mean, std::sqrt(squares / count)};
}

}  // namespace qmr
