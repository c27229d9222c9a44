// Whole rows of rank selections under a disc, for the operations that go over an image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "qmrimg/filters/kernels/rank_disc.h"
#include "qmrimg/filters/kernels/rank_network.h"
#include "qmrimg/filters/kernels/rank_window.h"
#include "qmrimg/image/kernels/sort_network.h"
#include "qmrimg/store/image.h"

namespace qmr {

// What stands in a window's cells beyond the image.
enum class RankEdge {
  // As in CFilterBlock: columns clamped, rows mirrored about both end rows.
  kMirror,
  // Nothing: the selection is made from fewer pixels.
  kDrop,
};

// A disc no further than `limit` columns and rows; above 23169 of them, throws the memory exception.
RankDisc MakeRankDisc(int limit, double radius);
// That of the corrective and the star filters: the limit is the radius rounded up, at least 1.
RankDisc MakeRankDisc(double radius);

// One thread's downward pass over a plane: at every pixel, elements of the sorted pixels under a disc. Not-a-number
// sorts last.
class RankScan {
 public:
  // `ranks` are the elements wanted, counted from 0 ascending (or kUpperMedian, kGreatest); a rank that the window
  // does not have gives 0.0. Columns left..right - 1, cut to the image; rows from `bottom` on are not computed ahead.
  // The image must outlive the scan and must not change meanwhile. Throws the memory exception for discs that reach
  // further than 4000 pixels.
  RankScan(const CImage& image, int plane, const RankDisc& disc, RankEdge edge, std::span<const int> ranks, int left,
           int right, int bottom);
  RankScan(const RankScan&) = delete;
  RankScan& operator=(const RankScan&) = delete;

  // Element ranks[k] at the columns of row `y`, valid until another row is asked for. Rows in any order; ascending
  // order is fast. Empty when the image has no such row, plane or column.
  std::span<const float> Row(int y, int k = 0);

 private:
  void ChooseNetwork();
  void MakeBand(int y);
  // Small windows.
  void PrepareNetwork();
  void NetworkBand();
  void FillRing(std::int64_t first, std::int64_t last);
  void MarkNan(int y);
  void DropBorders(int y);
  void DropPixels(int x, int columns, int y);
  // Large windows.
  void WindowBand();
  void FillTile(int rows, int columns, int x);

  float* RingRow(std::vector<float>& ring, std::int64_t row) { return ring.data() + RingSlot(row) * ringStride_; }
  std::size_t RingSlot(std::int64_t row) const {
    return static_cast<std::size_t>((row % ringRows_ + ringRows_) % ringRows_);
  }
  float* OutRow(int y, std::size_t k) {
    return out_.data() + (static_cast<std::size_t>(y - bandFirst_) * ranks_.size() + k) * outStride_;
  }

  const CImage& image_;
  int plane_;
  RankDisc disc_;
  RankEdge edge_;
  std::vector<int> ranks_;
  // The elements that they mean in a full window, -1 for none.
  std::vector<int> elements_;
  int left_;
  int columns_ = 0;
  int bottom_;

  // Rows that `out_` holds.
  int bandFirst_ = 0;
  int bandCount_ = 0;
  std::size_t outStride_ = 0;
  std::vector<float> out_;

  std::optional<RankNetwork> network_;
  std::vector<float> scratch_;
  std::vector<float*> blockOut_;
  // Source rows with their margins, infinite where they hold not-a-number; row r stands for the image row of that
  // number after mirroring.
  std::int64_t ringRows_ = 0;
  std::size_t ringStride_ = 0;
  std::int64_t ringFirst_ = 0;
  std::int64_t ringLast_ = 0;
  std::vector<float> ring_;
  std::vector<char> ringHasNan_;
  // 1.0 where the ring's rows hold not-a-number; rows without any are undefined.
  std::vector<float> ringNan_;
  std::vector<float> nanCounts_;
  // Windows that reach beyond the image: a network a rank, and the cells of some pixels side by side.
  std::vector<std::vector<Comparator>> borderNetworks_;
  std::vector<std::uint32_t> borderKeys_;

  std::optional<RankWindow> window_;
  std::vector<float*> tileOut_;
};

}  // namespace qmr
