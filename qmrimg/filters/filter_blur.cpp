#include "qmrimg/filters/filter_blur.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/selection.h"
#include "qmrimg/filters/separable_scan.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageGaussian = 6131;

using qmr::ForAllPlanes;

}  // namespace

CImgFilterBlur::CImgFilterBlur() = default;
CImgFilterBlur::~CImgFilterBlur() = default;

void CImgFilterBlur::GaussianFilter(double sigma, CVynImage* source, CRect* pRect, int bProgress) {
  Gaussian(ForAllPlanes(sigma, *this).data(), nullptr, source, pRect, bProgress);
}

void CImgFilterBlur::GaussianFilter(double* sigma, CVynImage* source, CRect* pRect, int bProgress) {
  Gaussian(sigma, nullptr, source, pRect, bProgress);
}

void CImgFilterBlur::GaussianFilter(double sigma, int minOn, double min, double minBuf, int maxOn, double max,
                                    double maxBuf, CVynImage* source, CRect* pRect, int bProgress) {
  const qmr::SelectionLimits limits{minOn, min, minBuf, maxOn, max, maxBuf};
  Gaussian(ForAllPlanes(sigma, *this).data(), ForAllPlanes(limits, *this).data(), source, pRect, bProgress);
}

void CImgFilterBlur::GaussianFilter(double* sigma, int* minOn, double* min, double* minBuf, int* maxOn, double* max,
                                    double* maxBuf, CVynImage* source, CRect* pRect, int bProgress) {
  Gaussian(sigma, qmr::LimitsOfPlanes(Planes, minOn, min, minBuf, maxOn, max, maxBuf).data(), source, pRect, bProgress);
}

void CImgFilterBlur::Gaussian(const double* sigma, const qmr::SelectionLimits* limits, CVynImage* source, CRect* pRect,
                              int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageGaussian, (bottom - top) * Planes);
  qmr::Snapshot before(*this);
  for (int p = 0; p < std::min({Planes, source->GetPlanes(), qmr::kEnginePlanes}); ++p) {
    CFilterMatrix matrix;
    matrix.SetGaussianSigma(sigma[p]);
    MakeFilterProc(source, &matrix, p, 1);
    SetFilterProcPln(p);
    const CFilterProc& engine = *CurFilterProc;
    // The source of the call that filled the engine.
    const CVynImage& image = before.Of(*engine.GetSource());
    const bool limited = limits != nullptr;
    const qmr::Selection selection(*source, p, limited ? limits[p] : qmr::SelectionLimits{});
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      qmr::SeparableScan scan(image, engine.GetPlane(), engine.GetKernel(), left, right, last);
      for (int y = first; y < last; ++y) {
        const std::span<const float> filtered = scan.Row(y);
        const auto [from, to] = qmr::RowPair(*source, *this, y, p, left, right);
        const std::size_t width = std::min(filtered.size(), to.size());
        if (limited)
          qmr::BlendRow(selection, from.first(width), filtered.first(width), to.first(width));
        else
          std::copy_n(filtered.begin(), width, to.begin());
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}
