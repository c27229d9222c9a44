// The class of the corrective filters, and the filter with a kernel of the user's own.

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/filter_pass.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/selection.h"

namespace {

constexpr int kMessageCustom = 6175;

using qmr::ForAllPlanes;

}  // namespace

CImgFilterMisc::CImgFilterMisc() = default;
CImgFilterMisc::~CImgFilterMisc() = default;

void CImgFilterMisc::Custom(int radius, double* kernel, CVynImage* source, CRect* pRect, int bProgress) {
  Convolve(ForAllPlanes(radius, *this).data(), ForAllPlanes(kernel, *this).data(), nullptr, source, pRect, bProgress);
}

void CImgFilterMisc::Custom(int radius, double* kernel, int minOn, double min, double minBuf, int maxOn, double max,
                            double maxBuf, int brighterOn, double brighter, CVynImage* source, CRect* pRect,
                            int bProgress) {
  const qmr::SharpenLimits limits{{minOn, min, minBuf, maxOn, max, maxBuf}, brighterOn, brighter};
  Convolve(ForAllPlanes(radius, *this).data(), ForAllPlanes(kernel, *this).data(), ForAllPlanes(limits, *this).data(),
           source, pRect, bProgress);
}

void CImgFilterMisc::Custom(int* radius, double** kernel, int* minOn, double* min, double* minBuf, int* maxOn,
                            double* max, double* maxBuf, int* brighterOn, double* brighter, CVynImage* source,
                            CRect* pRect, int bProgress) {
  if (!radius || !kernel) return;
  Convolve(radius, kernel,
           qmr::LimitsOfPlanes(Planes, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter).data(), source,
           pRect, bProgress);
}

void CImgFilterMisc::Convolve(const int* radius, const double* const* kernel, const qmr::SharpenLimits* limits,
                              CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  qmr::FilterPass pass(*this, *source, pRect, bProgress, kMessageCustom);
  for (int p = 0; p < pass.Planes(); ++p) {
    CFilterMatrix matrix;
    if (radius[p] < 0 || !matrix.SetValues(radius[p], kernel[p], 0)) continue;
    const qmr::SharpenSelection selection(*source, p, limits ? limits[p] : qmr::SharpenLimits{});
    pass.Convolved(p, matrix, [&](auto from, auto filtered, auto to) {
      // The ramp first, the limit on darkening on what it leaves: the reverse of the sharpening filters, on purpose.
      if (limits)
        qmr::BlendThenLimitRow(selection, from, filtered, to);
      else
        qmr::CopyFiltered(filtered, to);
    });
  }
  pass.End();
}
