#include "qmrimg/filters/rank_scan.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>

#include "qmrimg/filters/block_scan.h"
#include "qmrimg/filters/kernels/block_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"

namespace qmr {
namespace {

// The largest square whose pixels an int counts.
constexpr int kMaxLimit = 23169;
// A tile with wider margins would take gigabytes a thread.
constexpr int kMaxReach = 4000;
// Larger windows have longer networks than are worth making.
constexpr int kNetworkCells = 400;
// Minima and maxima a pixel beyond which a sliding window is faster.
constexpr double kNetworkWork = 750.0;
// Output rows that a network makes at a time.
constexpr int kNetworkRows[] = {4, 8};
// Pixels at the image's border whose windows are sorted at a time.
constexpr int kBorderLanes = 16;
// Output pixels of a sliding window's tile, each way.
constexpr int kTile = 64;
constexpr int kMaxTileRows = 128;
constexpr int kMaxTileColumns = 512;

}  // namespace

RankDisc MakeRankDisc(int limit, double radius) {
  if (limit > kMaxLimit) AfxThrowMemoryException();
  return RankDisc(limit, radius);
}

RankDisc MakeRankDisc(double radius) {
  return MakeRankDisc(TruncateToInt(std::max(1.0, std::ceil(radius))), radius);
}

RankScan::RankScan(const CImage& image, int plane, const RankDisc& disc, RankEdge edge, std::span<const int> ranks,
                   int left, int right, int bottom)
    : image_(image),
      plane_(plane),
      disc_(disc),
      edge_(edge),
      ranks_(ranks.begin(), ranks.end()),
      left_(std::max(left, 0)),
      bottom_(std::min(bottom, image.GetHeight())) {
  // Where there is a last row, there are all of them.
  columns_ = static_cast<int>(ReadRow(image, image.GetHeight() - 1, plane, left_, right).size());
  if (columns_ == 0) return;
  constexpr std::size_t kBlock = RankNetwork::kColumns;
  outStride_ = (static_cast<std::size_t>(columns_) + kBlock - 1) / kBlock * kBlock;
  for (const int rank : ranks_) elements_.push_back(ResolveRank(rank, disc_.Count()));
  int bandRows = 1;
  // Without an element to look for, rows stay 0.0.
  if (std::any_of(elements_.begin(), elements_.end(), [](int element) { return element >= 0; })) {
    ChooseNetwork();
    if (network_) {
      PrepareNetwork();
      bandRows = network_->Rows();
    } else {
      if (disc_.Reach() > kMaxReach) AfxThrowMemoryException();
      // The margins of a tile, as wide as the disc, are worth sorting only for as many pixels.
      const int extent = std::max(2 * disc_.Reach(), kTile);
      bandRows = std::min({extent, kMaxTileRows, image.GetHeight()});
      window_.emplace(disc_, ranks_, bandRows, std::min({extent, kMaxTileColumns, columns_}));
      tileOut_.resize(ranks_.size());
    }
  }
  out_.resize(outStride_ * static_cast<std::size_t>(bandRows) * ranks_.size());
}

std::span<const float> RankScan::Row(int y, int k) {
  if (columns_ == 0 || y < 0 || y >= image_.GetHeight() || k < 0 || k >= static_cast<int>(ranks_.size())) return {};
  if (y < bandFirst_ || y >= bandFirst_ + bandCount_) MakeBand(y);
  return {OutRow(y, static_cast<std::size_t>(k)), static_cast<std::size_t>(columns_)};
}

void RankScan::MakeBand(int y) {
  bandFirst_ = y;
  bandCount_ = 1;
  if (network_) {
    // Bands at fixed rows: the sign of a zero may depend on a row's place in them, and must not on the first row.
    bandCount_ = network_->Rows();
    bandFirst_ = y / bandCount_ * bandCount_;
    NetworkBand();
  } else if (window_) {
    bandCount_ = std::clamp(bottom_ - y, 1, window_->Rows());
    WindowBand();
  }
}

// ---- Small windows -------------------------------------------------------------------------------------------------

// Takes the number of rows at a time that costs the least, if any does.
void RankScan::ChooseNetwork() {
  if (disc_.Count() > kNetworkCells) return;
  std::vector<int> wanted;
  std::copy_if(elements_.begin(), elements_.end(), std::back_inserter(wanted),
               [](int element) { return element >= 0; });
  for (const int rows : kNetworkRows) {
    RankNetwork network(disc_, wanted, rows);
    if (network.Work() < (network_ ? network_->Work() : kNetworkWork)) network_ = std::move(network);
  }
}

void RankScan::PrepareNetwork() {
  ringRows_ = network_->SourceRows();
  ringStride_ = outStride_ + 2 * static_cast<std::size_t>(disc_.Reach()) + RankNetwork::kSlack;
  ring_.resize(ringStride_ * static_cast<std::size_t>(ringRows_));
  ringHasNan_.resize(static_cast<std::size_t>(ringRows_));
  scratch_.resize(network_->ScratchFloats());
  if (edge_ != RankEdge::kDrop) return;
  const int count = disc_.Count();
  const std::vector<Comparator> sorting = SortNetwork(count);
  for (const int element : elements_) borderNetworks_.push_back(PruneNetwork(sorting, count, element, element));
  borderKeys_.resize(static_cast<std::size_t>(count) * kBorderLanes);
}

void RankScan::FillRing(std::int64_t first, std::int64_t last) {
  if (first < ringFirst_ || first > ringLast_) ringFirst_ = ringLast_ = first;
  for (; ringLast_ < last; ++ringLast_) {
    const std::span<float> row(RingRow(ring_, ringLast_), ringStride_);
    // All of the row: the columns beside the wanted ones are pixels of the window, too.
    PadRow(ReadRow(image_, BlockSourceRow(ringLast_, image_.GetHeight()), plane_, 0, image_.GetWidth()),
           static_cast<std::int64_t>(left_) - disc_.Reach(), row);
    const bool hasNan = !AllFinite(row) && std::any_of(row.begin(), row.end(), [](float v) { return v != v; });
    ringHasNan_[RingSlot(ringLast_)] = hasNan;
    if (!hasNan) continue;
    ringNan_.resize(ring_.size());
    float* const flags = RingRow(ringNan_, ringLast_);
    for (std::size_t i = 0; i < row.size(); ++i) {
      flags[i] = row[i] != row[i] ? 1.0f : 0.0f;
      if (row[i] != row[i]) row[i] = std::numeric_limits<float>::infinity();
    }
  }
  ringFirst_ = std::max(ringFirst_, ringLast_ - ringRows_);
}

void RankScan::NetworkBand() {
  const std::int64_t first = static_cast<std::int64_t>(bandFirst_) - disc_.Reach();
  FillRing(first, first + ringRows_);
  const float* source[RankNetwork::kMaxRows];
  for (std::size_t x = 0; x < outStride_; x += RankNetwork::kColumns) {
    for (std::int64_t r = 0; r < ringRows_; ++r) source[r] = RingRow(ring_, first + r) + x + disc_.Reach();
    blockOut_.clear();
    for (int y = bandFirst_; y < bandFirst_ + bandCount_; ++y)
      for (std::size_t k = 0; k < ranks_.size(); ++k)
        if (elements_[k] >= 0) blockOut_.push_back(OutRow(y, k) + x);
    network_->Run(source, blockOut_.data(), scratch_.data());
  }
  for (int y = bandFirst_; y < std::min(bandFirst_ + bandCount_, image_.GetHeight()); ++y) {
    MarkNan(y);
    if (edge_ == RankEdge::kDrop) DropBorders(y);
  }
}

// Among values with infinities in the place of not-a-number, the last ones are those.
void RankScan::MarkNan(int y) {
  if (std::none_of(ringHasNan_.begin(), ringHasNan_.end(), [](char has) { return has; })) return;
  const int reach = disc_.Reach();
  nanCounts_.assign(static_cast<std::size_t>(columns_), 0.0f);
  for (int dy = -reach; dy <= reach; ++dy) {
    const std::int64_t row = static_cast<std::int64_t>(y) + dy;
    if (!ringHasNan_[RingSlot(row)]) continue;
    for (int dx = -disc_.Half(dy); dx <= disc_.Half(dy); ++dx) {
      const float* const flags = RingRow(ringNan_, row) + (dx + reach);
      float* const counts = nanCounts_.data();
      const int columns = columns_;
#pragma omp simd
      for (int x = 0; x < columns; ++x) counts[x] += flags[x];
    }
  }
  for (std::size_t k = 0; k < ranks_.size(); ++k) {
    if (elements_[k] < 0) continue;
    const auto firstNan = static_cast<float>(disc_.Count() - elements_[k]);
    float* const out = OutRow(y, k);
    for (int x = 0; x < columns_; ++x)
      if (nanCounts_[static_cast<std::size_t>(x)] >= firstNan) out[x] = std::numeric_limits<float>::quiet_NaN();
  }
}

// The pixels whose windows reach beyond the image are made anew.
void RankScan::DropBorders(int y) {
  const int end = left_ + columns_;
  const int reach = disc_.Reach();
  const bool rowsInside = y >= reach && y < image_.GetHeight() - reach;
  const int first = rowsInside ? std::clamp(reach, left_, end) : end;
  const int last = rowsInside ? std::clamp(image_.GetWidth() - reach, first, end) : end;
  for (int x = left_; x < first; x += kBorderLanes) DropPixels(x, std::min(kBorderLanes, first - x), y);
  for (int x = last; x < end; x += kBorderLanes) DropPixels(x, std::min(kBorderLanes, end - x), y);
}

// Cells outside the image take keys below or above all others, as many of the one kind as it takes for the wanted
// element to stand where it stands in a full window: so one network serves all pixels.
void RankScan::DropPixels(int x, int columns, int y) {
  const int width = image_.GetWidth();
  const int reach = disc_.Reach();
  const int firstRow = std::max(-reach, -y);
  const int lastRow = std::min(reach, image_.GetHeight() - 1 - y);
  std::array<int, kBorderLanes> present{};
  for (int dy = firstRow; dy <= lastRow; ++dy)
    for (int i = 0; i < columns; ++i)
      present[static_cast<std::size_t>(i)] +=
          std::min(x + i + disc_.Half(dy), width - 1) - std::max(x + i - disc_.Half(dy), 0) + 1;
  for (std::size_t k = 0; k < ranks_.size(); ++k) {
    if (elements_[k] < 0) continue;
    std::array<int, kBorderLanes> element, below;
    for (std::size_t i = 0; i < kBorderLanes; ++i) {
      element[i] = ResolveRank(ranks_[k], present[i]);
      below[i] = elements_[k] - element[i];
    }
    std::uint32_t* keys = borderKeys_.data();
    for (int dy = -reach; dy <= reach; ++dy) {
      const std::span<const float> row = ReadRow(image_, y + dy, plane_, 0, width);
      for (int dx = -disc_.Half(dy); dx <= disc_.Half(dy); ++dx) {
        for (int i = 0; i < kBorderLanes; ++i) {
          const auto column = static_cast<std::size_t>(x + i + dx);
          const bool inside = column < row.size();
          *keys++ = inside ? OrderKey(row[column]) : (below[static_cast<std::size_t>(i)]-- > 0 ? 0u : ~0u);
        }
      }
    }
    RunNetwork<kBorderLanes>(borderNetworks_[k], borderKeys_.data());
    const std::uint32_t* const found = borderKeys_.data() + elements_[k] * kBorderLanes;
    float* const out = OutRow(y, k) + (x - left_);
    for (int i = 0; i < columns; ++i) out[i] = element[static_cast<std::size_t>(i)] < 0 ? 0.0f : FromOrderKey(found[i]);
  }
}

// ---- Large windows -------------------------------------------------------------------------------------------------

void RankScan::FillTile(int rows, int columns, int x) {
  const int reach = disc_.Reach();
  const std::size_t tileColumns = static_cast<std::size_t>(columns) + 2 * static_cast<std::size_t>(reach);
  for (int r = 0; r < rows + 2 * reach; ++r) {
    const std::int64_t y = static_cast<std::int64_t>(bandFirst_) - reach + r;
    if (edge_ == RankEdge::kDrop && (y < 0 || y >= image_.GetHeight())) continue;
    PadRow(ReadRow(image_, BlockSourceRow(y, image_.GetHeight()), plane_, 0, image_.GetWidth()),
           static_cast<std::int64_t>(x) - reach, window_->Row(r).first(tileColumns));
  }
}

void RankScan::WindowBand() {
  for (int first = 0; first < columns_; first += window_->Columns()) {
    const int columns = std::min(window_->Columns(), columns_ - first);
    const int x = left_ + first;
    FillTile(bandCount_, columns, x);
    for (std::size_t k = 0; k < ranks_.size(); ++k) tileOut_[k] = OutRow(bandFirst_, k) + first;
    constexpr int kAll = std::numeric_limits<int>::max();
    RankWindow::Inside inside{0, 0, kAll, kAll};
    if (edge_ == RankEdge::kDrop) {
      const int left = x - disc_.Reach();
      const int top = bandFirst_ - disc_.Reach();
      inside = {-left, -top, image_.GetWidth() - left, image_.GetHeight() - top};
    }
    window_->Run(bandCount_, columns, inside, tileOut_.data(), outStride_ * ranks_.size());
  }
}

}  // namespace qmr
