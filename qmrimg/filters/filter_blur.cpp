#include "qmrimg/filters/filter_blur.h"

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_pass.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/selection.h"

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
  qmr::FilterPass pass(*this, *source, pRect, bProgress, kMessageGaussian);
  for (int p = 0; p < pass.EnginePlanes(); ++p) {
    CFilterMatrix matrix;
    matrix.SetGaussianSigma(sigma[p]);
    MakeFilterProc(source, &matrix, p, 1);
    SetFilterProcPln(p);
    const qmr::Selection selection(*source, p, limits ? limits[p] : qmr::SelectionLimits{});
    pass.Separable(p, *CurFilterProc, [&](auto from, auto blurred, auto to) {
      if (limits)
        qmr::BlendRow(selection, from, blurred, to);
      else
        qmr::CopyFiltered(blurred, to);
    });
  }
  pass.End();
}
