// Smoothing away from stars and edges.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "qmrimg/filters/block_scan.h"
#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_special.h"
#include "qmrimg/filters/kernels/star_rows.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/filters/window_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageNebularSmoother = 6174;

// What the smoother does on one plane. Raw scale.
struct Smoothing {
  CFilterMatrix weights;
  // The weights' sum, in their order, in float.
  float allWeights = 0.0f;
  float limit = 0.0f;
  // Half widths of the rows of the disc that is searched for marks, from the middle row outwards.
  std::vector<int> reach;
};

// The disc's rows beyond the map count as the map's end rows. Those are searched over the wider span of their own
// row of the disc already, so the disc may be cut there, and at the image's columns likewise.
std::vector<int> DiscReach(double discRadius, int mapRadius, int width) {
  const int cells = qmr::TruncateToInt(std::max(1.0, std::ceil(discRadius)));
  std::vector<int> reach;
  int dx = std::min(cells, width);
  for (int dy = 0; dy <= std::min(cells, mapRadius); ++dy) {
    while (dx >= 0 && !(static_cast<double>(dx) * dx + static_cast<double>(dy) * dy <= discRadius * discRadius)) --dx;
    if (dx < 0) break;
    reach.push_back(dx);
  }
  return reach;
}

// One thread's downward scan. The map's rows beyond the image are those of a CFilterBlock around them.
class NebulaScan {
 public:
  NebulaScan(const CVynImage& source, int plane, Smoothing& smoothing, int left, int right)
      : source_(source),
        plane_(plane),
        smoothing_(smoothing),
        width_(source.GetWidth()),
        radius_(smoothing.weights.GetRadius()),
        left_(left),
        right_(std::min(right, width_)),
        values_(width_, radius_, 0.0f),
        keep_(width_, radius_, 1.0f),
        distances_((2 * static_cast<std::size_t>(radius_) + 1) * static_cast<std::size_t>(width_)),
        response_(static_cast<std::size_t>(width_)),
        stays_(static_cast<std::size_t>(width_)),
        sums_(static_cast<std::size_t>(width_)),
        kept_(static_cast<std::size_t>(width_)) {
    const std::int64_t margin = std::max(radius_, smoothing.reach.empty() ? 0 : smoothing.reach.front());
    mapLeft_ = static_cast<int>(std::max<std::int64_t>(left - margin, 0));
    mapRight_ = static_cast<int>(std::min<std::int64_t>(right_ + margin, width_));
  }

  // Writes what row `y` becomes, columns left.. as many as `out` has; they are the source's.
  void Smooth(int y, std::span<float> out) {
    if (out.empty()) return;
    const std::int64_t last = std::int64_t{y} + radius_;
    for (next_ = std::max(next_, std::int64_t{y} - radius_); next_ <= last; ++next_) FillMap(next_);
    FindStays(y);
    Sum(y);
    const auto cut = [&](auto& row) { return std::span(row).subspan(static_cast<std::size_t>(left_), out.size()); };
    qmr::WeightedMeanRow(qmr::ReadRow(source_, y, plane_, left_, right_).first(out.size()), cut(stays_), cut(sums_),
                         cut(kept_), out);
  }

 private:
  std::span<int> Distances(std::int64_t y) {
    const std::int64_t count = 2 * std::int64_t{radius_} + 1;
    return {distances_.data() + ((y % count + count) % count) * width_ + mapLeft_,
            static_cast<std::size_t>(mapRight_ - mapLeft_)};
  }

  void FillMap(std::int64_t y) {
    const float* rows[3];
    for (int i = 0; i < 3; ++i) {
      const int row = qmr::BlockSourceRow(y - 1 + i, source_.GetHeight());
      rows[i] = qmr::ReadRow(source_, row, plane_, 0, width_).data();
    }
    qmr::ResponseRow(rows, width_, mapLeft_, mapRight_, response_.data());
    const auto cut = [&](std::span<float> row) {
      return row.subspan(static_cast<std::size_t>(mapLeft_), static_cast<std::size_t>(mapRight_ - mapLeft_));
    };
    const std::span<float> keep = cut(keep_.Row(y));
    qmr::KeepBelow({rows[1] + mapLeft_, keep.size()}, cut(response_), smoothing_.limit, cut(values_.Row(y)), keep);
    values_.Pad(y, mapLeft_, mapRight_);
    keep_.Pad(y, mapLeft_, mapRight_);
    keep_.Flag(y, mapLeft_, mapRight_);
    qmr::MarkDistances(keep, Distances(y));
  }

  // Pixels that are marked or have a mark in their disc.
  void FindStays(int y) {
    const std::span<int> stays =
        std::span(stays_).subspan(static_cast<std::size_t>(mapLeft_), static_cast<std::size_t>(mapRight_ - mapLeft_));
    std::fill(stays.begin(), stays.end(), 0);
    const std::vector<int>& reach = smoothing_.reach;
    qmr::SetWithin(Distances(y), reach.empty() ? 0 : reach.front(), stays);
    for (std::size_t dy = 1; dy < reach.size(); ++dy) {
      qmr::SetWithin(Distances(y - static_cast<std::int64_t>(dy)), reach[dy], stays);
      qmr::SetWithin(Distances(y + static_cast<std::int64_t>(dy)), reach[dy], stays);
    }
  }

  // Sums of value times weight and of weights over the unmarked pixels of the window, in float, row after row. A
  // marked pixel adds a zero to both, which changes neither.
  void Sum(int y) {
    values_.Gather(smoothing_.weights, y, -1, valueTaps_);
    keep_.Gather(smoothing_.weights, y, -1, keepTaps_);
    for (int first = left_; first < right_;) {
      const Kind kind = KindOf(first);
      int end = TileEnd(first);
      while (end < right_ && KindOf(end) == kind) end = TileEnd(end);
      const auto from = static_cast<std::size_t>(first);
      const auto to = static_cast<std::size_t>(end);
      if (kind != Kind::kStays) qmr::SumTaps(valueTaps_, from, to, sums_.data());
      if (kind == Kind::kMixed)
        qmr::SumTaps(keepTaps_, from, to, kept_.data());
      else
        std::fill(kept_.begin() + first, kept_.begin() + end, smoothing_.allWeights);
      first = end;
    }
  }

  enum class Kind { kStays, kWithoutMarks, kMixed };

  int TileEnd(int x) const { return std::min((x / qmr::WindowRows::kTile + 1) * qmr::WindowRows::kTile, right_); }

  Kind KindOf(int first) const {
    if (!keep_.Differs(first)) return Kind::kWithoutMarks;
    const bool all = std::all_of(stays_.begin() + first, stays_.begin() + TileEnd(first), [](int s) { return s != 0; });
    return all ? Kind::kStays : Kind::kMixed;
  }

  const CVynImage& source_;
  int plane_;
  Smoothing& smoothing_;
  int width_;
  int radius_;
  int left_;
  int right_;
  int mapLeft_ = 0;
  int mapRight_ = 0;
  // The map in two parts: pixels, and 1 where they are kept. Marks are 0 in both.
  qmr::WindowRows values_;
  qmr::WindowRows keep_;
  std::vector<int> distances_;
  std::vector<float> response_;
  std::vector<int> stays_;
  std::vector<float> sums_;
  std::vector<float> kept_;
  std::vector<qmr::BlockTap> valueTaps_;
  std::vector<qmr::BlockTap> keepTaps_;
  // The first map row not yet computed.
  std::int64_t next_ = INT64_MIN;
};

}  // namespace

void CImgFilterSpecial::NebularSmootherFilter(double* sigma, double* threshold, double* discRadius, int maskOnly,
                                              CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageNebularSmoother, (bottom - top) * Planes);
  qmr::Snapshot before(*this);
  const CVynImage& image = before.Of(*source);
  for (int p = 0; p < std::min(Planes, image.GetPlanes()); ++p) {
    Smoothing smoothing;
    smoothing.weights.SetGaussianSigma(sigma[p]);
    for (int i = 0; i < smoothing.weights.GetCount(); ++i) smoothing.allWeights += smoothing.weights.Get(i);
    smoothing.limit = qmr::StarLimit(threshold[p], image.GetLevelRange(p));
    smoothing.reach = DiscReach(discRadius[p], smoothing.weights.GetRadius(), image.GetWidth());
    const auto bright = static_cast<float>(GetLevelMax(p));
    const auto dark = static_cast<float>(GetLevelMin(p));
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      NebulaScan scan(image, p, smoothing, left, right);
      for (int y = first; y < last; ++y) {
        const auto [from, to] = qmr::RowPair(image, *this, y, p, left, right);
        scan.Smooth(y, to);
        // The mask is the object's own levels: dark where pixels are smoothed.
        if (maskOnly) qmr::IndicatorRow(from, to, bright, dark, to);
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}
