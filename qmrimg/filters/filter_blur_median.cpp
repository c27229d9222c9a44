// Median of the smoothing filters.
#include <algorithm>

#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/filters/filter_pass.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/rank_scan.h"
#include "qmrimg/filters/selection.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageMedian = 6120;

// The disc of a plane. Cells further away than the image is long never meet a pixel.
qmr::RankDisc DiscOf(const CVynImage& image, double radius) {
  const int length = std::max({image.GetWidth(), image.GetHeight(), 1});
  return qmr::MakeRankDisc(std::clamp(qmr::TruncateToInt(radius), 1, length), radius);
}

}  // namespace

void CImgFilterBlur::MedianFilter(double radius, CVynImage* source, CRect* pRect, int bProgress) {
  Median(qmr::ForAllPlanes(radius, *this).data(), nullptr, source, pRect, bProgress);
}

void CImgFilterBlur::MedianFilter(double* radius, CVynImage* source, CRect* pRect, int bProgress) {
  Median(radius, nullptr, source, pRect, bProgress);
}

void CImgFilterBlur::MedianFilter(double radius, int minOn, double min, double minBuf, int maxOn, double max,
                                  double maxBuf, CVynImage* source, CRect* pRect, int bProgress) {
  const qmr::SelectionLimits limits{minOn, min, minBuf, maxOn, max, maxBuf};
  Median(qmr::ForAllPlanes(radius, *this).data(), qmr::ForAllPlanes(limits, *this).data(), source, pRect, bProgress);
}

void CImgFilterBlur::MedianFilter(double* radius, int* minOn, double* min, double* minBuf, int* maxOn, double* max,
                                  double* maxBuf, CVynImage* source, CRect* pRect, int bProgress) {
  Median(radius, qmr::LimitsOfPlanes(Planes, minOn, min, minBuf, maxOn, max, maxBuf).data(), source, pRect, bProgress);
}

void CImgFilterBlur::Median(const double* radius, const qmr::SelectionLimits* limits, CVynImage* source, CRect* pRect,
                            int bProgress) {
  if (!source) return;
  qmr::FilterPass pass(*this, *source, pRect, bProgress, kMessageMedian);
  for (int p = 0; p < pass.Planes(); ++p) {
    const qmr::Selection selection(*source, p, limits ? limits[p] : qmr::SelectionLimits{});
    pass.Ranked(p, DiscOf(*source, radius[p]), qmr::RankEdge::kDrop, qmr::kUpperMedian,
                [&](auto from, auto medians, auto to) {
                  if (limits)
                    qmr::BlendRow(selection, from, medians, to);
                  else
                    qmr::CopyFiltered(medians, to);
                });
  }
  pass.End();
}
