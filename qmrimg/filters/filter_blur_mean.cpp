// Means of the smoothing filters.
#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_pass.h"
#include "qmrimg/filters/kernels/sharpen_rows.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/selection.h"
#include "qmrimg/filters/separable_scan.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageMean = 6119;
// The group of the edge kernel.
constexpr int kEdgeSlot = 0;

using qmr::ColumnsOf;
using qmr::ForAllPlanes;
using qmr::LimitsOfPlanes;
using qmr::SelectionLimits;

int WindowRadius(double radius) {
  return std::max(1, qmr::TruncateToInt(radius));
}

}  // namespace

void CImgFilterBlur::MeanFilter(double radius, double weight, CVynImage* source, CRect* pRect, int bProgress) {
  BoxMean(ForAllPlanes(radius, *this).data(), ForAllPlanes(weight, *this).data(), source, pRect, bProgress);
}

void CImgFilterBlur::MeanFilter(double* radius, double* weight, CVynImage* source, CRect* pRect, int bProgress) {
  BoxMean(radius, weight, source, pRect, bProgress);
}

void CImgFilterBlur::MeanFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn,
                                double max, double maxBuf, CVynImage* source, CRect* pRect, int bProgress) {
  const SelectionLimits limits{minOn, min, minBuf, maxOn, max, maxBuf};
  DiscMean(ForAllPlanes(radius, *this).data(), ForAllPlanes(weight, *this).data(), ForAllPlanes(limits, *this).data(),
           source, pRect, bProgress);
}

void CImgFilterBlur::MeanFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf, int* maxOn,
                                double* max, double* maxBuf, CVynImage* source, CRect* pRect, int bProgress) {
  DiscMean(radius, weight, LimitsOfPlanes(Planes, minOn, min, minBuf, maxOn, max, maxBuf).data(), source, pRect,
           bProgress);
}

void CImgFilterBlur::MeanWithoutEdgeFilter(double radius, double weight, CVynImage* source, CRect* pRect,
                                           int bProgress) {
  MeanWithoutEdge(ForAllPlanes(radius, *this).data(), ForAllPlanes(weight, *this).data(), nullptr, source, pRect,
                  bProgress);
}

void CImgFilterBlur::MeanWithoutEdgeFilter(double* radius, double* weight, CVynImage* source, CRect* pRect,
                                           int bProgress) {
  MeanWithoutEdge(radius, weight, nullptr, source, pRect, bProgress);
}

void CImgFilterBlur::MeanWithoutEdgeFilter(double radius, double weight, int minOn, double min, double minBuf,
                                           int maxOn, double max, double maxBuf, CVynImage* source, CRect* pRect,
                                           int bProgress) {
  const SelectionLimits limits{minOn, min, minBuf, maxOn, max, maxBuf};
  MeanWithoutEdge(ForAllPlanes(radius, *this).data(), ForAllPlanes(weight, *this).data(),
                  ForAllPlanes(limits, *this).data(), source, pRect, bProgress);
}

void CImgFilterBlur::MeanWithoutEdgeFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf,
                                           int* maxOn, double* max, double* maxBuf, CVynImage* source, CRect* pRect,
                                           int bProgress) {
  MeanWithoutEdge(radius, weight, LimitsOfPlanes(Planes, minOn, min, minBuf, maxOn, max, maxBuf).data(), source, pRect,
                  bProgress);
}

void CImgFilterBlur::BoxMean(const double* radius, const double* weight, CVynImage* source, CRect* pRect,
                             int bProgress) {
  if (!source) return;
  qmr::FilterPass pass(*this, *source, pRect, bProgress, kMessageMean);
  for (int p = 0; p < pass.EnginePlanes(); ++p) {
    CFilterMatrix disc;
    // Twice the radius of the disc, on purpose: the weights outside it are 0, but meet infinite pixels.
    disc.SetWeightedDisc(std::max(1, qmr::TruncateToInt(2.0 * qmr::TruncateToInt(radius[p]))), radius[p], weight[p]);
    MakeFilterProc(source, &disc, p, 1);
    SetFilterProcPln(p);
    // The engine uses the disc's centre row both ways: a box, on purpose, where the form with limits has the disc.
    pass.Separable(p, *CurFilterProc, [](auto, auto mean, auto to) { qmr::CopyFiltered(mean, to); });
  }
  pass.End();
}

void CImgFilterBlur::DiscMean(const double* radius, const double* weight, const SelectionLimits* limits,
                              CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  qmr::FilterPass pass(*this, *source, pRect, bProgress, kMessageMean);
  for (int p = 0; p < pass.Planes(); ++p) {
    CFilterMatrix disc;
    disc.SetWeightedDisc(WindowRadius(radius[p]), radius[p], weight[p]);
    const qmr::Selection selection(*source, p, limits[p]);
    pass.Convolved(p, disc, [&](auto from, auto mean, auto to) { qmr::BlendRow(selection, from, mean, to); });
  }
  pass.End();
}

void CImgFilterBlur::MeanWithoutEdge(const double* radius, const double* weight, const SelectionLimits* limits,
                                     CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageMean, (bottom - top) * Planes);
  qmr::Snapshot before(*this);
  for (int p = 0; p < std::min({Planes, source->GetPlanes(), qmr::kEnginePlanes}); ++p) {
    CFilterMatrix disc, laplacian;
    disc.SetWeightedDisc(WindowRadius(radius[p]), radius[p], weight[p]);
    laplacian.SetLaplacian(WindowRadius(radius[p]), radius[p]);
    MakeFilterProc(source, &disc, p, 1);
    MakeFilterProcEx(kEdgeSlot, source, &laplacian, p, 1);
    SetFilterProcPln(p);
    SetFilterProcPlnEx(kEdgeSlot, p);
    const CFilterProc& smoother = *CurFilterProc;
    const CFilterProc& finder = *FilterProcEx[kEdgeSlot].Get(p);
    const CVynImage& image = before.Of(*smoother.GetSource());
    const CVynImage& edgeImage = before.Of(*finder.GetSource());
    const double range = GetLevelRange(p);
    const bool limited = limits != nullptr;
    const qmr::Selection selection(*source, p, limited ? limits[p] : SelectionLimits{});
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      qmr::SeparableScan means(image, smoother.GetPlane(), smoother.GetKernel(), left, right, last);
      qmr::SeparableScan edges(edgeImage, finder.GetPlane(), finder.GetKernel(), left, right, last);
      std::vector<float> blended(ColumnsOf(left, right));
      for (int y = first; y < last; ++y) {
        const std::span<const float> mean = means.Row(y), edge = edges.Row(y);
        const qmr::RowSpans rows = qmr::RowPair(*source, *this, y, p, left, right);
        const std::size_t width = std::min({mean.size(), edge.size(), rows.to.size()});
        const std::span<const float> from = rows.from.first(width);
        const std::span<float> to = rows.to.first(width);
        const std::span<float> row = limited ? std::span(blended).first(width) : to;
        qmr::EdgeBlendRow(edge.first(width), range, mean.first(width), from, row);
        if (limited) qmr::BlendRow(selection, from, row, to);
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}
