#include "qmrimg/levels/kernels/equalize_rows.h"

#include <algorithm>

namespace qmr {
namespace {

std::uint32_t KeyOf(SortRecord record) {
  return static_cast<std::uint32_t>(record >> 32);
}

// The lot of column x: a counter scrambled once, so that columns don't wait for each other.
std::uint32_t LotOf(std::uint64_t seed, std::size_t x) {
  std::uint64_t v = seed + x * 0x9E3779B97F4A7C15u;
  v = (v ^ v >> 32) * 0xD6E8FEB86659FD93u;
  return static_cast<std::uint32_t>(v >> (64 - kLotBits));
}

}  // namespace

float OrderedValue(std::uint32_t order) {
  return std::bit_cast<float>(order >= kZeroOrder ? order - kZeroOrder : kZeroOrder + (kZeroOrder - order));
}

OrderStatistics StatisticsOfRow(std::span<const float> row) {
  // Sixteen columns side by side: the folds are exact in any order, and so they run across pixels.
  constexpr std::size_t kLanes = 16;
  std::uint32_t low[kLanes], high[kLanes], any[kLanes], all[kLanes];
  const OrderStatistics start;
  std::fill_n(low, kLanes, start.lowest);
  std::fill_n(high, kLanes, start.highest);
  std::fill_n(any, kLanes, start.anyBits);
  std::fill_n(all, kLanes, start.allBits);
  for (std::size_t x = 0; x < row.size(); x += kLanes) {
    const float* const from = row.data() + x;
    const std::size_t count = std::min(kLanes, row.size() - x);
#pragma omp simd
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint32_t order = ValueOrder(from[i]);
      const std::uint32_t nan = order == kNanOrder ? kNanOrder : 0u;
      low[i] = order < low[i] ? order : low[i];
      high[i] = (order & ~nan) > high[i] ? (order & ~nan) : high[i];
      any[i] |= order & ~nan;
      all[i] &= order;
    }
  }
  OrderStatistics total;
  for (std::size_t i = 0; i < kLanes; ++i) total = Merge(total, {low[i], high[i], any[i], all[i]});
  return total;
}

OrderStatistics Merge(const OrderStatistics& a, const OrderStatistics& b) {
  return {std::min(a.lowest, b.lowest), std::max(a.highest, b.highest), a.anyBits | b.anyBits, a.allBits & b.allBits};
}

SortKeys::SortKeys(const OrderStatistics& plane) {
  if (plane.lowest == kNanOrder) return;
  lowest_ = plane.lowest;
  // Bits below the lowest one in which numbers differ say nothing.
  const std::uint32_t differing = plane.anyBits & ~plane.allBits;
  shift_ = differing ? std::countr_zero(differing) : 0;
  behind_ = ((plane.highest - lowest_) >> shift_) + 1;
}

void CountLots(std::size_t width, std::uint64_t seed, std::uint32_t* counts) {
  for (std::size_t x = 0; x < width; ++x) ++counts[LotOf(seed, x)];
}

void PlaceRow(std::span<const float> row, const SortKeys& keys, std::uint64_t seed, std::uint32_t position,
              std::size_t covered, std::uint32_t* next, SortRecord* to) {
  const SortKeys k = keys;
  for (std::size_t x = 0; x < row.size(); ++x) {
    const std::uint32_t place = x < covered ? position + static_cast<std::uint32_t>(x) : kNowhere;
    to[next[LotOf(seed, x)]++] = static_cast<SortRecord>(k.Of(row[x])) << 32 | place;
  }
}

void CountRecords(std::span<const SortRecord> from, SortDigit digit, std::uint32_t* counts) {
  const std::uint32_t mask = (1u << digit.bits) - 1;
  for (const SortRecord record : from) ++counts[(KeyOf(record) >> digit.shift) & mask];
}

void PlaceRecords(std::span<const SortRecord> from, SortDigit digit, std::uint32_t* next, SortRecord* to) {
  const std::uint32_t mask = (1u << digit.bits) - 1;
  for (const SortRecord record : from) to[next[(KeyOf(record) >> digit.shift) & mask]++] = record;
}

void CountsToPlaces(std::span<std::uint32_t> counts, std::size_t digits) {
  std::uint32_t place = 0;
  for (std::size_t digit = 0; digit < digits; ++digit) {
    for (std::size_t i = digit; i < counts.size(); i += digits) {
      const std::uint32_t count = counts[i];
      counts[i] = place;
      place += count;
    }
  }
}

// The finaliser of SplitMix64 (Steele, Lea, Flood 2014).
std::uint64_t Scramble(std::uint64_t v) {
  v = (v ^ v >> 30) * 0xBF58476D1CE4E5B9u;
  v = (v ^ v >> 27) * 0x94D049BB133111EBu;
  return v ^ v >> 31;
}

void SpreadRanks(std::span<const SortRecord> sorted, std::size_t first, std::size_t last, const RankLevels& levels,
                 float* plane) {
  const SortRecord* const records = sorted.data();
  const auto total = static_cast<double>(sorted.size());
  const RankLevels l = levels;
  for (std::size_t rank = first; rank < last; ++rank) {
    const auto position = static_cast<std::uint32_t>(records[rank]);
    if (position == kNowhere) continue;
    plane[position] = static_cast<float>(static_cast<double>(rank) * l.range / total + l.min);
  }
}

}  // namespace qmr
