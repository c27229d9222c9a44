// Hot and cool pixels, and the rank filter.
#include <algorithm>
#include <cstddef>
#include <limits>
#include <span>

#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/kernels/rank_rows.h"
#include "qmrimg/filters/rank_scan.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageNoiseCut = 6164;
constexpr int kMessageMinMax = 6153;

}  // namespace

void CImgFilterMisc::NoiseCut(double radius, int coolOn, double coolThreshold, int hotOn, double hotThreshold,
                              CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageNoiseCut, (bottom - top) * Planes);
  const qmr::NoiseRule rule{coolOn != 0, coolThreshold, hotOn != 0, hotThreshold};
  const qmr::RankDisc disc = qmr::MakeRankDisc(radius);
  qmr::Snapshot before(*this);
  const CVynImage& image = before.Of(*source);
  for (int p = 0; p < std::min(Planes, image.GetPlanes()); ++p) {
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      constexpr int kRanks[] = {qmr::kUpperMedian};
      qmr::RankScan scan(image, p, disc, qmr::RankEdge::kMirror, kRanks, left, right, last);
      for (int y = first; y < last; ++y) {
        const std::span<const float> medians = scan.Row(y);
        const auto [from, to] = qmr::RowPair(image, *this, y, p, left, right);
        const std::size_t width = std::min(medians.size(), to.size());
        qmr::NoiseCutRow(from.first(width), medians.first(width), rule, to.first(width));
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}

void CImgFilterMisc::MinMaxFilter(double* radius, int* rank, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageMinMax, (bottom - top) * Planes);
  qmr::Snapshot before(*this);
  const CVynImage& image = before.Of(*source);
  for (int p = 0; p < std::min(Planes, image.GetPlanes()); ++p) {
    const qmr::RankDisc disc = qmr::MakeRankDisc(radius[p]);
    // Negative numbers mean other things to the scan.
    const int ranks[] = {rank[p] >= 0 ? rank[p] : std::numeric_limits<int>::max()};
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      qmr::RankScan scan(image, p, disc, qmr::RankEdge::kMirror, ranks, left, right, last);
      for (int y = first; y < last; ++y) {
        const std::span<const float> values = scan.Row(y);
        const std::span<float> to = qmr::WriteRow(*this, y, p, left, right);
        std::copy_n(values.begin(), std::min(values.size(), to.size()), to.begin());
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}

int CImgFilterMisc::GetMinMaxFilterNmax(double radius) {
  return qmr::MakeRankDisc(radius).Count();
}
