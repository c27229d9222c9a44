#include "qmrimg/levels/hst_eql.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <numeric>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/kernels/equalize_rows.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/store/block.h"

namespace {

constexpr int kMessageEqualize = 6177;
constexpr int kPlanes = 3;
// A report counts 258 units a plane: 256 bins of the histogram and one at either end of it.
constexpr int kUnits = 258;

// More digits would leave the second-level cache: 9 or 10 bits were measured to take the least time a bit.
constexpr int kDigitBits = 10;
static_assert(qmr::kLotBits <= kDigitBits);
constexpr std::size_t kMostParts = 64;
constexpr std::size_t kPixelsPerPart = 65536;

// Sorts the pixels of planes of one size, equal ones by lot: a radix sort, whose time does not depend on the values and
// whose result does not depend on the parts that threads take. The buffers serve all planes of a call.
class PlaneSorter {
 public:
  // Both images have rows. Raises the memory exception.
  PlaneSorter(const CVynImage& source, const CVynImage& target)
      : height_(source.GetHeight()),
        pixels_(static_cast<std::size_t>(source.GetWidth()) * static_cast<std::size_t>(height_)) {
    const std::size_t targetBytes =
        static_cast<std::size_t>(target.GetVmImage()->GetRowBytes()) * static_cast<std::size_t>(target.GetHeight());
    // Places and positions are numbers of 32 bits.
    if (std::max(pixels_, targetBytes / sizeof(float)) >= qmr::kNowhere) AfxThrowMemoryException();
    parts_ = static_cast<int>(std::min({pixels_ / kPixelsPerPart + 1, kMostParts, static_cast<std::size_t>(height_)}));
    for (qmr::Block& buffer : buffers_) {
      buffer = qmr::Block(pixels_ * sizeof(qmr::SortRecord), qmr::Block::Content::kUndefined);
      if (!buffer.Get()) AfxThrowMemoryException();
    }
    try {
      counts_.resize(static_cast<std::size_t>(parts_) << kDigitBits);
      rowOrder_.resize(static_cast<std::size_t>(height_));
    } catch (const std::bad_alloc&) {
      AfxThrowMemoryException();
    }
  }

  // Records of the source's pixels, whose positions count from pixel 0 of row 0 of the target's plane.
  std::span<const qmr::SortRecord> Sort(const CVynImage& source, CVynImage& target, int plane,
                                        const qmr::SortKeys& keys, std::uint64_t seed) {
    DrawLots(source, target, plane, keys, seed);
    std::span<qmr::SortRecord> from = Records(0);
    std::span<qmr::SortRecord> to = Records(1);
    const int passes = (keys.Bits() + kDigitBits - 1) / kDigitBits;
    for (int pass = 0; pass < passes; ++pass) {
      const int bits = (keys.Bits() + passes - 1) / passes;
      SortDigits({pass * bits, bits}, from, to);
      std::swap(from, to);
    }
    return from;
  }

 private:
  std::span<qmr::SortRecord> Records(int buffer) {
    return {reinterpret_cast<qmr::SortRecord*>(buffers_[buffer].Get()), pixels_};
  }

  // Counts digits part by part, then places each part's records: `count(part, counters)`, `place(part, counters)`.
  template <class Count, class Place>
  void Pass(int bits, Count count, Place place) {
    const std::size_t digits = std::size_t{1} << bits;
    const std::span<std::uint32_t> counts(counts_.data(), static_cast<std::size_t>(parts_) * digits);
    const auto of = [&](int part) { return counts.data() + static_cast<std::size_t>(part) * digits; };
    qmr::ForRows(0, parts_, [&](int part) {
      std::fill_n(of(part), digits, 0u);
      count(part, of(part));
    });
    qmr::CountsToPlaces(counts, digits);
    qmr::ForRows(0, parts_, [&](int part) { place(part, of(part)); });
  }

  // Equal lots fall back on the order in which rows are visited; that is random, too, so that a flat sky gets no slope.
  void DrawLots(const CVynImage& source, CVynImage& target, int plane, const qmr::SortKeys& keys, std::uint64_t seed) {
    const int width = source.GetWidth();
    const float* const origin = qmr::WriteRow(target, 0, plane, 0, 1).data();
    std::iota(rowOrder_.begin(), rowOrder_.end(), 0);
    for (std::size_t i = rowOrder_.size(); i > 1; --i)
      std::swap(rowOrder_[i - 1], rowOrder_[static_cast<std::size_t>(qmr::Scramble(seed + i) % i)]);
    const auto seedOf = [&](int y) { return qmr::Scramble(~seed + static_cast<std::uint64_t>(y)); };
    const auto rows = [&](int part) { return Share(std::span<const int>(rowOrder_), part); };
    Pass(
        qmr::kLotBits,
        [&](int part, std::uint32_t* counts) {
          for (const int y : rows(part)) qmr::CountLots(static_cast<std::size_t>(width), seedOf(y), counts);
        },
        [&](int part, std::uint32_t* next) {
          for (const int y : rows(part)) {
            const std::span<float> result = qmr::WriteRow(target, y, plane, 0, width);
            const auto position = result.empty() ? 0u : static_cast<std::uint32_t>(result.data() - origin);
            qmr::PlaceRow(qmr::ReadRow(source, y, plane, 0, width), keys, seedOf(y), position, result.size(), next,
                          Records(0).data());
          }
        });
  }

  void SortDigits(qmr::SortDigit digit, std::span<const qmr::SortRecord> from, std::span<qmr::SortRecord> to) {
    Pass(
        digit.bits, [&](int part, std::uint32_t* counts) { qmr::CountRecords(Share(from, part), digit, counts); },
        [&](int part, std::uint32_t* next) { qmr::PlaceRecords(Share(from, part), digit, next, to.data()); });
  }

  template <class Item>
  std::span<const Item> Share(std::span<const Item> items, int part) const {
    const auto parts = static_cast<std::size_t>(parts_);
    const std::size_t begin = items.size() * static_cast<std::size_t>(part) / parts;
    return items.subspan(begin, items.size() * static_cast<std::size_t>(part + 1) / parts - begin);
  }

  int height_;
  std::size_t pixels_;
  int parts_ = 1;
  qmr::Block buffers_[2];
  std::vector<std::uint32_t> counts_;
  std::vector<int> rowOrder_;
};

std::uint64_t Draw() {
  const auto high = static_cast<std::uint64_t>(std::rand());
  return high << 32 | static_cast<std::uint64_t>(std::rand());
}

}  // namespace

CImgHstEql::CImgHstEql() = default;
CImgHstEql::~CImgHstEql() = default;

int CImgHstEql::Do(CVynImage* source) {
  if (!source) return 0;
  const int planes = std::min({source->GetPlanes(), Planes, kPlanes});
  const int width = source->GetWidth();
  const int height = source->GetHeight();
  // Without rows on either side there is nothing to rank or to write; plane counts may run ahead of the pixels.
  const auto hasRows = [&](int p) {
    return !qmr::ReadRow(*source, 0, p, 0, width).empty() && !qmr::WriteRow(*this, 0, p, 0, Width).empty();
  };
  std::optional<PlaneSorter> sorter;
  if (hasRows(0)) sorter.emplace(*source, *this);
  ShowProgressInit(1, kMessageEqualize, kUnits * planes);
  source->CalcMinMax();
  for (int p = 0; sorter && p < planes && hasRows(p); ++p) {
    const qmr::OrderStatistics statistics = qmr::FoldRows(
        0, height, qmr::OrderStatistics{},
        [&](int y) { return qmr::StatisticsOfRow(qmr::ReadRow(*source, y, p, 0, width)); }, qmr::Merge);
    // What CalcMinMax found, but for a plane that begins with not-a-number: minimum and maximum of its numbers.
    const bool numbers = statistics.lowest != qmr::kNanOrder;
    const double min = numbers ? qmr::OrderedValue(statistics.lowest) : source->GetMinPixel(p);
    const double max = numbers ? qmr::OrderedValue(statistics.highest) : source->GetMaxPixel(p);
    source->SetLevel(p, min, max);
    const std::span<const qmr::SortRecord> sorted = sorter->Sort(*source, *this, p, qmr::SortKeys(statistics), Draw());
    float* const results = qmr::WriteRow(*this, 0, p, 0, Width).data();
    qmr::ForRows(
        0, kUnits,
        [&](int unit) {
          const std::size_t first = sorted.size() * static_cast<std::size_t>(unit) / kUnits;
          const std::size_t last = sorted.size() * static_cast<std::size_t>(unit + 1) / kUnits;
          qmr::SpreadRanks(sorted, first, last, {min, max - min}, results);
        },
        this);
  }
  ShowProgressEnd(nullptr);
  return 1;
}
