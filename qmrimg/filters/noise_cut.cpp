// Hot and cool pixels, and the rank filter.
#include <limits>

#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/filter_pass.h"
#include "qmrimg/filters/kernels/rank_rows.h"
#include "qmrimg/filters/rank_scan.h"

namespace {

constexpr int kMessageNoiseCut = 6164;
constexpr int kMessageMinMax = 6153;

}  // namespace

void CImgFilterMisc::NoiseCut(double radius, int coolOn, double coolThreshold, int hotOn, double hotThreshold,
                              CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  qmr::FilterPass pass(*this, *source, pRect, bProgress, kMessageNoiseCut);
  const qmr::NoiseRule rule{coolOn != 0, coolThreshold, hotOn != 0, hotThreshold};
  const qmr::RankDisc disc = qmr::MakeRankDisc(radius);
  for (int p = 0; p < pass.Planes(); ++p) {
    pass.Ranked(p, disc, qmr::RankEdge::kMirror, qmr::kUpperMedian,
                [&](auto from, auto medians, auto to) { qmr::NoiseCutRow(from, medians, rule, to); });
  }
  pass.End();
}

void CImgFilterMisc::MinMaxFilter(double* radius, int* rank, CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  qmr::FilterPass pass(*this, *source, pRect, bProgress, kMessageMinMax);
  for (int p = 0; p < pass.Planes(); ++p) {
    // Negative numbers mean other things to the scan.
    const int wanted = rank[p] >= 0 ? rank[p] : std::numeric_limits<int>::max();
    pass.Ranked(p, qmr::MakeRankDisc(radius[p]), qmr::RankEdge::kMirror, wanted,
                [](auto, auto values, auto to) { qmr::CopyFiltered(values, to); });
  }
  pass.End();
}

int CImgFilterMisc::GetMinMaxFilterNmax(double radius) {
  return qmr::MakeRankDisc(radius).Count();
}
