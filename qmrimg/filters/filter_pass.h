// What the filters over a window do alike: rectangle, report, and the way from scanned rows to rows of the result.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "qmrimg/filters/block_scan.h"
#include "qmrimg/filters/filter_proc.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/rank_scan.h"
#include "qmrimg/filters/separable_scan.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// One call of a filter. The constructor clamps the rectangle and opens the report, End closes it. `row(from, filtered,
// to)` of the members gets rows of one width: the source's pixels, their filtered values and where results go.
class FilterPass {
 public:
  FilterPass(CVynImage& target, CVynImage& source, const CRect* rect, int bProgress, int message)
      : target_(target), source_(source), before_(target) {
    target.NormalizeRect(rect, left_, top_, right_, bottom_);
    const std::int64_t units = (static_cast<std::int64_t>(bottom_) - top_) * target.GetPlanes();
    target.ShowProgressInit(bProgress, message,
                            static_cast<int>(std::min<std::int64_t>(units, std::numeric_limits<int>::max())));
  }

  // Planes that both images have, and those of them that have engines.
  int Planes() const { return std::min(target_.GetPlanes(), source_.GetPlanes()); }
  int EnginePlanes() const { return std::min(Planes(), kEnginePlanes); }

  // With a separable engine: with its kernel, and the source of the call that filled it.
  template <class Row>
  void Separable(int plane, const CFilterProc& engine, const Row& row) {
    const CVynImage& image = before_.Of(*engine.GetSource());
    Run(
        plane,
        [&](int last) { return SeparableScan(image, engine.GetPlane(), engine.GetKernel(), left_, right_, last); },
        row);
  }

  // With a square kernel.
  template <class Row>
  void Convolved(int plane, CFilterMatrix& kernel, const Row& row) {
    const CVynImage& image = before_.Of(source_);
    Run(
        plane, [&](int) { return ConvolvedRows(image, plane, kernel, left_, right_); }, row);
  }

  // With an element of sorted discs.
  template <class Row>
  void Ranked(int plane, const RankDisc& disc, RankEdge edge, int rank, const Row& row) {
    const CVynImage& image = before_.Of(source_);
    Run(
        plane,
        [&](int last) {
          return RankScan(image, plane, disc, edge, {&rank, 1}, left_, right_, last);
        },
        row);
  }

  void End() { target_.ShowProgressEnd(nullptr); }

 private:
  class ConvolvedRows {
   public:
    ConvolvedRows(const CImage& image, int plane, CFilterMatrix& kernel, int left, int right)
        : kernel_(kernel), scan_(image, plane, kernel.GetRadius(), left, right), row_(ColumnsOf(left, right)) {}
    std::span<const float> Row(int y) {
      if (!scan_.MoveTo(y)) return {};
      const std::span<float> row = std::span(row_).first(scan_.Centre().size());
      scan_.Convolve(kernel_, row);
      return row;
    }

   private:
    CFilterMatrix& kernel_;
    BlockScan scan_;
    std::vector<float> row_;
  };

  template <class MakeScan, class Row>
  void Run(int plane, const MakeScan& makeScan, const Row& row) {
    ForRowRanges(top_, bottom_, [&](int first, int last) {
      auto scan = makeScan(last);
      for (int y = first; y < last; ++y) {
        const std::span<const float> filtered = scan.Row(y);
        const auto [from, to] = RowPair(source_, target_, y, plane, left_, right_);
        const std::size_t width = std::min(filtered.size(), to.size());
        row(from.first(width), filtered.first(width), to.first(width));
        target_.ShowProgress(1);
      }
    });
  }

  CVynImage& target_;
  CVynImage& source_;
  Snapshot before_;
  int left_, top_, right_, bottom_;
};

// The rows of a filter without limits are its result.
inline void CopyFiltered(std::span<const float> filtered, std::span<float> to) {
  std::copy(filtered.begin(), filtered.end(), to.begin());
}

}  // namespace qmr
