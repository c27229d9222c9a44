#include "qmrimg/image/kernels/histogram_rows.h"

#include <algorithm>
#include <new>

#include "qmrimg/image/pixel_math.h"
#include "qmrimg/platform/exception.h"

namespace qmr {
namespace {

constexpr std::size_t kChunk = 1024;
constexpr int kCopies = 4;
// Up to here the copies stay in the first-level cache.
constexpr int kManyBins = 2048;

// The bin of a value, or `bins` for none.
inline int PlaceOf(double v, const BinScale& scale) {
  const double place = (v - scale.min) * scale.perUnit;
  const double last = scale.bins - 1;
  const double upper = place > last ? last : place;
  // Written so that not-a-number gives 0.
  const int bin = static_cast<int>(upper > 0.0 ? upper : 0.0);
  const int notBelow = v >= scale.min ? bin : scale.bins;
  return v <= scale.max ? notBelow : scale.bins;
}

inline double BrightOf(float r, float g, float b, const BrightScale& s) {
  return BrightInPlaneOrder((r - s.min[0]) * s.k[0], (g - s.min[1]) * s.k[1], (b - s.min[2]) * s.k[2]);
}

void FindPlaces(const float* values, std::size_t count, const BinScale& scale, int* places) {
  const BinScale s = scale;
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) places[i] = PlaceOf(values[i], s);
}

void FindBrightPlaces(const float* r, const float* g, const float* b, std::size_t count, const BrightScale& bright,
                      const BinScale& scale, int* places) {
  const BrightScale l = bright;
  const BinScale s = scale;
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) places[i] = PlaceOf(BrightOf(r[i], g[i], b[i], l), s);
}

}  // namespace

BinScale::BinScale(double low, double high, int count)
    : min(low), max(high), perUnit(high > low ? count / (high - low) : 0.0), bins(count) {}

BinCounts::BinCounts(int bins)
    : bins_(bins), copies_(bins <= kManyBins ? kCopies : 1), stride_(static_cast<std::size_t>(bins) + 16) {
  counts_.reset(new (std::nothrow) std::uint32_t[stride_ * static_cast<std::size_t>(copies_)]());
  if (!counts_) AfxThrowMemoryException();
}

void BinCounts::Count(const int* places, std::size_t count) {
  std::uint32_t* const counts = counts_.get();
  std::size_t i = 0;
  if (copies_ == kCopies) {
    const std::size_t stride = stride_;
    for (; i + kCopies <= count; i += kCopies) {
      ++counts[places[i]];
      ++counts[stride + static_cast<std::size_t>(places[i + 1])];
      ++counts[stride * 2 + static_cast<std::size_t>(places[i + 2])];
      ++counts[stride * 3 + static_cast<std::size_t>(places[i + 3])];
    }
  }
  for (; i < count; ++i) ++counts[places[i]];
}

void BinCounts::AddRow(std::span<const float> row, const BinScale& scale) {
  int places[kChunk];
  for (std::size_t x = 0; x < row.size(); x += kChunk) {
    const std::size_t count = std::min(kChunk, row.size() - x);
    FindPlaces(row.data() + x, count, scale, places);
    Count(places, count);
  }
}

void BinCounts::AddBrightRow(std::span<const float> r, std::span<const float> g, std::span<const float> b,
                             const BrightScale& bright, const BinScale& scale) {
  int places[kChunk];
  const std::size_t width = std::min({r.size(), g.size(), b.size()});
  for (std::size_t x = 0; x < width; x += kChunk) {
    const std::size_t count = std::min(kChunk, width - x);
    FindBrightPlaces(r.data() + x, g.data() + x, b.data() + x, count, bright, scale, places);
    Count(places, count);
  }
}

void BinCounts::Add(float value, const BinScale& scale) {
  ++counts_[static_cast<std::size_t>(PlaceOf(value, scale))];
}

void BinCounts::AddBright(float r, float g, float b, const BrightScale& bright, const BinScale& scale) {
  ++counts_[static_cast<std::size_t>(PlaceOf(BrightOf(r, g, b, bright), scale))];
}

void BinCounts::MergeInto(int* hist) const {
  for (int c = 0; c < copies_; ++c) {
    const std::uint32_t* const counts = counts_.get() + stride_ * static_cast<std::size_t>(c);
    for (int i = 0; i < bins_; ++i) hist[i] += static_cast<int>(counts[i]);
  }
}

}  // namespace qmr
