// Median of the smoothing filters.
#include <algorithm>
#include <cstddef>
#include <span>

#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/rank_scan.h"
#include "qmrimg/filters/selection.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
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
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageMedian, (bottom - top) * Planes);
  qmr::Snapshot before(*this);
  const CVynImage& image = before.Of(*source);
  for (int p = 0; p < std::min(Planes, image.GetPlanes()); ++p) {
    const qmr::RankDisc disc = DiscOf(image, radius[p]);
    const bool limited = limits != nullptr;
    const qmr::Selection selection(image, p, limited ? limits[p] : qmr::SelectionLimits{});
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      constexpr int kRanks[] = {qmr::kUpperMedian};
      qmr::RankScan scan(image, p, disc, qmr::RankEdge::kDrop, kRanks, left, right, last);
      for (int y = first; y < last; ++y) {
        const std::span<const float> medians = scan.Row(y);
        const auto [from, to] = qmr::RowPair(image, *this, y, p, left, right);
        const std::size_t width = std::min(medians.size(), to.size());
        if (limited)
          qmr::BlendRow(selection, from.first(width), medians.first(width), to.first(width));
        else
          std::copy_n(medians.begin(), width, to.begin());
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}
