// Ranking of all pixels of a plane: sort keys, the passes of a radix sort, and ranks back into pixels.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace qmr {

// Order of pixel values as an unsigned number: the two zeros are equal, not-a-number lies behind all numbers. Values
// with zeros at the end of their bits, such as integers, have them here, too.
inline constexpr std::uint32_t kZeroOrder = 0x80000000u;
inline constexpr std::uint32_t kNanOrder = 0xFFFFFFFFu;
inline std::uint32_t ValueOrder(float v) {
  const auto bits = std::bit_cast<std::uint32_t>(v);
  const std::uint32_t magnitude = bits & 0x7FFFFFFFu;
  const std::uint32_t number = bits == magnitude ? kZeroOrder + magnitude : kZeroOrder - magnitude;
  return v == v ? number : kNanOrder;
}
// The number of that order.
float OrderedValue(std::uint32_t order);

// What a plane holds, found row by row.
struct OrderStatistics {
  std::uint32_t lowest = kNanOrder;  // of numbers; kNanOrder where there is none
  std::uint32_t highest = 0;
  std::uint32_t anyBits = 0;  // bits set in some number's order, and in all of them
  std::uint32_t allBits = ~std::uint32_t{0};
};
OrderStatistics StatisticsOfRow(std::span<const float> row);
OrderStatistics Merge(const OrderStatistics& a, const OrderStatistics& b);

// The fewest bits that keep the plane's order.
class SortKeys {
 public:
  explicit SortKeys(const OrderStatistics& plane);
  std::uint32_t Of(float v) const {
    const std::uint32_t order = ValueOrder(v);
    return order == kNanOrder ? behind_ : (order - lowest_) >> shift_;
  }
  int Bits() const { return std::bit_width(behind_); }

 private:
  std::uint32_t lowest_ = 0;
  int shift_ = 0;
  std::uint32_t behind_ = 0;  // the key of not-a-number, above all others
};

// A pixel on its way: the key in the upper half, where its result goes in the lower.
using SortRecord = std::uint64_t;
inline constexpr std::uint32_t kNowhere = 0xFFFFFFFFu;

// The first pass draws lots: every pixel takes a random digit of kLotBits bits from its row's seed. The passes after
// it go through the key from its lowest bits and keep the order of equals, so that lots decide between equal pixels.
inline constexpr int kLotBits = 10;
void CountLots(std::size_t width, std::uint64_t seed, std::uint32_t* counts);
// `next[digit]` is the place of the next record of that digit. The results of the first `covered` pixels go to
// `position` onwards, those of the others nowhere.
void PlaceRow(std::span<const float> row, const SortKeys& keys, std::uint64_t seed, std::uint32_t position,
              std::size_t covered, std::uint32_t* next, SortRecord* to);

// Some bits of the key.
struct SortDigit {
  int shift;
  int bits;
};
void CountRecords(std::span<const SortRecord> from, SortDigit digit, std::uint32_t* counts);
void PlaceRecords(std::span<const SortRecord> from, SortDigit digit, std::uint32_t* next, SortRecord* to);

// Turns counts[part * digits + digit] into places: by digit, and within a digit by part.
void CountsToPlaces(std::span<std::uint32_t> counts, std::size_t digits);

// A number that looks nothing like `v`.
std::uint64_t Scramble(std::uint64_t v);

// Raw scale: rank r of n pixels comes to r * range / n + min.
struct RankLevels {
  double min;
  double range;
};

// Gives the sorted records first..last - 1 their pixels.
void SpreadRanks(std::span<const SortRecord> sorted, std::size_t first, std::size_t last, const RankLevels& levels,
                 float* plane);

}  // namespace qmr
