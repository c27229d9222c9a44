// Rank selection that shrinks stars.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

#include "qmrimg/filters/filter_special.h"
#include "qmrimg/filters/kernels/rank_rows.h"
#include "qmrimg/filters/rank_scan.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageStarSharp = 6165;

}  // namespace

void CImgFilterSpecial::StarSharpFilter(double* radius, double* rank, double* threshold, int keepPeaks,
                                        CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageStarSharp, (bottom - top) * Planes);
  qmr::Snapshot before(*this);
  const CVynImage& image = before.Of(*source);
  for (int p = 0; p < std::min(Planes, image.GetPlanes()); ++p) {
    const qmr::RankDisc disc = qmr::MakeRankDisc(radius[p]);
    const int last = std::max(disc.Count() - 1, 0);
    const int position = qmr::TruncateToInt(std::floor(rank[p]));
    const int lower = std::clamp(position, 0, last);
    const float fraction = static_cast<float>(rank[p]) - static_cast<float>(position);
    // Beyond the ends there is nothing to interpolate.
    const bool between = lower == position && lower < last;
    const qmr::PeakRule rule{keepPeaks != 0, threshold[p]};
    const bool ruled = rule.keepPeaks || rule.threshold != 0.0;
    std::vector<int> ranks{lower};
    if (between) ranks.push_back(lower + 1);
    if (ruled) ranks.push_back(qmr::kGreatest);
    qmr::ForRowRanges(top, bottom, [&](int firstRow, int lastRow) {
      qmr::RankScan scan(image, p, disc, qmr::RankEdge::kMirror, ranks, left, right, lastRow);
      for (int y = firstRow; y < lastRow; ++y) {
        const auto [from, to] = qmr::RowPair(image, *this, y, p, left, right);
        const std::size_t width = to.size();
        const auto element = [&](bool wanted, int k) {
          return wanted ? scan.Row(y, k).first(width) : std::span<const float>();
        };
        qmr::StarSharpRow(from, element(true, 0), element(between, 1), fraction, element(ruled, between ? 2 : 1), rule,
                          to);
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}

int CImgFilterSpecial::GetStarSharpFilterNum(double radius) {
  return qmr::MakeRankDisc(radius).Count();
}
