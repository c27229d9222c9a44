// The class of the corrective filters, and the filter with a kernel of the user's own.
#include <algorithm>
#include <span>
#include <vector>

#include "qmrimg/filters/block_scan.h"
#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/selection.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

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
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageCustom, (bottom - top) * Planes);
  qmr::Snapshot before(*this);
  const CVynImage& image = before.Of(*source);
  for (int p = 0; p < std::min(Planes, source->GetPlanes()); ++p) {
    CFilterMatrix matrix;
    if (radius[p] < 0 || !matrix.SetValues(radius[p], kernel[p], 0)) continue;
    const bool limited = limits != nullptr;
    const qmr::SharpenSelection selection(*source, p, limited ? limits[p] : qmr::SharpenLimits{});
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      qmr::BlockScan scan(image, p, matrix.GetRadius(), left, right);
      std::vector<float> filtered;
      for (int y = first; y < last; ++y) {
        scan.MoveTo(y);
        const std::span<const float> from = scan.Centre();
        filtered.resize(from.size());
        scan.Convolve(matrix, filtered);
        const std::span<float> to = qmr::WriteRow(*this, y, p, left, right);
        const std::size_t width = std::min(from.size(), to.size());
        // The ramp first, the limit on darkening on what it leaves: the reverse of the sharpening filters, on purpose.
        if (limited)
          qmr::BlendThenLimitRow(selection, from.first(width), std::span(filtered).first(width), to.first(width));
        else
          std::copy_n(filtered.begin(), width, to.begin());
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}
