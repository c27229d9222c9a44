#include "qmrimg/filters/filter_sharp.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/kernels/sharpen_rows.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/selection.h"
#include "qmrimg/filters/separable_scan.h"
#include "qmrimg/filters/sharp_run.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageSubBand = 6147;
constexpr int kBands = 6;

using qmr::ColumnsOf;
using qmr::ForAllPlanes;
using qmr::LimitsOfPlanes;
using qmr::RunSharpen;
using qmr::RunUnSharpMask;
using qmr::SharpenLimits;

}  // namespace

// One entry a plane.
struct CImgFilterSharp::Band {
  const double* sigma;
  const double* gain;
};

CImgFilterSharp::CImgFilterSharp() = default;
CImgFilterSharp::~CImgFilterSharp() = default;

void CImgFilterSharp::SharpFilter(double radius, double weight, CVynImage* source, CRect* pRect, int bProgress) {
  RunSharpen(*this, false, ForAllPlanes(radius, *this).data(), ForAllPlanes(weight, *this).data(), nullptr, source,
             pRect, bProgress);
}

void CImgFilterSharp::SharpFilter(double* radius, double* weight, CVynImage* source, CRect* pRect, int bProgress) {
  RunSharpen(*this, false, radius, weight, nullptr, source, pRect, bProgress);
}

void CImgFilterSharp::SharpFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn,
                                  double max, double maxBuf, int brighterOn, double brighter, CVynImage* source,
                                  CRect* pRect, int bProgress) {
  const SharpenLimits limits{{minOn, min, minBuf, maxOn, max, maxBuf}, brighterOn, brighter};
  RunSharpen(*this, false, ForAllPlanes(radius, *this).data(), ForAllPlanes(weight, *this).data(),
             ForAllPlanes(limits, *this).data(), source, pRect, bProgress);
}

void CImgFilterSharp::SharpFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf, int* maxOn,
                                  double* max, double* maxBuf, int* brighterOn, double* brighter, CVynImage* source,
                                  CRect* pRect, int bProgress) {
  RunSharpen(*this, false, radius, weight,
             LimitsOfPlanes(Planes, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter).data(), source, pRect,
             bProgress);
}

void CImgFilterSharp::SharpEdgeFilter(double radius, double weight, CVynImage* source, CRect* pRect, int bProgress) {
  RunSharpen(*this, true, ForAllPlanes(radius, *this).data(), ForAllPlanes(weight, *this).data(), nullptr, source,
             pRect, bProgress);
}

void CImgFilterSharp::SharpEdgeFilter(double* radius, double* weight, CVynImage* source, CRect* pRect, int bProgress) {
  RunSharpen(*this, true, radius, weight, nullptr, source, pRect, bProgress);
}

void CImgFilterSharp::SharpEdgeFilter(double radius, double weight, int minOn, double min, double minBuf, int maxOn,
                                      double max, double maxBuf, int brighterOn, double brighter, CVynImage* source,
                                      CRect* pRect, int bProgress) {
  const SharpenLimits limits{{minOn, min, minBuf, maxOn, max, maxBuf}, brighterOn, brighter};
  RunSharpen(*this, true, ForAllPlanes(radius, *this).data(), ForAllPlanes(weight, *this).data(),
             ForAllPlanes(limits, *this).data(), source, pRect, bProgress);
}

void CImgFilterSharp::SharpEdgeFilter(double* radius, double* weight, int* minOn, double* min, double* minBuf,
                                      int* maxOn, double* max, double* maxBuf, int* brighterOn, double* brighter,
                                      CVynImage* source, CRect* pRect, int bProgress) {
  RunSharpen(*this, true, radius, weight,
             LimitsOfPlanes(Planes, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter).data(), source, pRect,
             bProgress);
}

void CImgFilterSharp::UnSharpMask(double sigma, double gain, double threshold, CVynImage* source, CRect* pRect,
                                  int bProgress) {
  RunUnSharpMask(*this, ForAllPlanes(sigma, *this).data(), ForAllPlanes(gain, *this).data(),
                 ForAllPlanes(threshold, *this).data(), nullptr, source, pRect, bProgress);
}

void CImgFilterSharp::UnSharpMask(double* sigma, double* gain, double* threshold, CVynImage* source, CRect* pRect,
                                  int bProgress) {
  RunUnSharpMask(*this, sigma, gain, threshold, nullptr, source, pRect, bProgress);
}

void CImgFilterSharp::UnSharpMask(double sigma, double gain, int minOn, double min, double minBuf, int maxOn,
                                  double max, double maxBuf, int brighterOn, double brighter, CVynImage* source,
                                  CRect* pRect, int bProgress) {
  const SharpenLimits limits{{minOn, min, minBuf, maxOn, max, maxBuf}, brighterOn, brighter};
  RunUnSharpMask(*this, ForAllPlanes(sigma, *this).data(), ForAllPlanes(gain, *this).data(), nullptr,
                 ForAllPlanes(limits, *this).data(), source, pRect, bProgress);
}

void CImgFilterSharp::UnSharpMask(double* sigma, double* gain, int* minOn, double* min, double* minBuf, int* maxOn,
                                  double* max, double* maxBuf, int* brighterOn, double* brighter, CVynImage* source,
                                  CRect* pRect, int bProgress) {
  RunUnSharpMask(*this, sigma, gain, nullptr,
                 LimitsOfPlanes(Planes, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter).data(), source,
                 pRect, bProgress);
}

void CImgFilterSharp::SubBandUnSharpMask(double sigma0, double gain0, double sigma1, double gain1, double sigma2,
                                         double gain2, double sigma3, double gain3, double sigma4, double gain4,
                                         double sigma5, double gain5, int minOn, double min, double minBuf, int maxOn,
                                         double max, double maxBuf, int brighterOn, double brighter, CVynImage* source,
                                         CRect* pRect, int bProgress) {
  const double values[2 * kBands] = {sigma0, gain0, sigma1, gain1, sigma2, gain2,
                                     sigma3, gain3, sigma4, gain4, sigma5, gain5};
  std::vector<double> planes[2 * kBands];
  for (int i = 0; i < 2 * kBands; ++i) planes[i] = ForAllPlanes(values[i], *this);
  Band bands[kBands];
  for (int k = 0; k < kBands; ++k) bands[k] = {planes[2 * k].data(), planes[2 * k + 1].data()};
  const SharpenLimits limits{{minOn, min, minBuf, maxOn, max, maxBuf}, brighterOn, brighter};
  MaskBands(bands, ForAllPlanes(limits, *this).data(), source, pRect, bProgress);
}

void CImgFilterSharp::SubBandUnSharpMask(double* sigma0, double* gain0, double* sigma1, double* gain1, double* sigma2,
                                         double* gain2, double* sigma3, double* gain3, double* sigma4, double* gain4,
                                         double* sigma5, double* gain5, int* minOn, double* min, double* minBuf,
                                         int* maxOn, double* max, double* maxBuf, int* brighterOn, double* brighter,
                                         CVynImage* source, CRect* pRect, int bProgress) {
  const Band bands[kBands] = {{sigma0, gain0}, {sigma1, gain1}, {sigma2, gain2},
                              {sigma3, gain3}, {sigma4, gain4}, {sigma5, gain5}};
  MaskBands(bands, LimitsOfPlanes(Planes, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter).data(), source,
            pRect, bProgress);
}

void CImgFilterSharp::MaskBands(const Band* bands, const SharpenLimits* limits, CVynImage* source, CRect* pRect,
                                int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  const std::int64_t units = (static_cast<std::int64_t>(bottom) - top) * Planes;
  ShowProgressInit(bProgress, kMessageSubBand,
                   static_cast<int>(std::min<std::int64_t>(units, std::numeric_limits<int>::max())));
  const int planes = std::min({Planes, source->GetPlanes(), qmr::kEnginePlanes});
  for (int p = 0; p < planes; ++p) {
    for (int k = 0; k < kBands; ++k) {
      CFilterMatrix matrix;
      matrix.SetGaussianSigma(bands[k].sigma[p]);
      MakeFilterProcEx(k, source, &matrix, p, 1);
    }
  }
  qmr::Snapshot before(*this);
  for (int p = 0; p < planes; ++p) {
    const CFilterProc* engines[kBands];
    const CVynImage* images[kBands];
    for (int k = 0; k < kBands; ++k) {
      SetFilterProcPlnEx(k, p);
      engines[k] = FilterProcEx[k].Get(p);
      images[k] = &before.Of(*engines[k]->GetSource());
    }
    const qmr::SharpenSelection selection(*source, p, limits[p]);
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      // A band without gain is not convolved.
      std::optional<qmr::SeparableScan> scans[kBands];
      for (int k = 0; k < kBands; ++k) {
        if (bands[k].gain[p] > 0.0)
          scans[k].emplace(*images[k], engines[k]->GetPlane(), engines[k]->GetKernel(), left, right, last);
      }
      std::vector<float> means(ColumnsOf(left, right));
      for (int y = first; y < last; ++y) {
        const auto [from, to] = qmr::RowPair(*source, *this, y, p, left, right);
        qmr::MaskBand masks[kBands] = {};
        std::size_t width = to.size();
        for (int k = 0; k < kBands; ++k) {
          if (!scans[k]) continue;
          const std::span<const float> blurred = scans[k]->Row(y);
          masks[k] = {blurred.data(), static_cast<float>(bands[k].gain[p])};
          width = std::min(width, blurred.size());
        }
        const std::span<const float> pixels = from.first(width);
        const std::span<float> mean = std::span(means).first(width);
        qmr::BandMeanRow(pixels, masks, mean);
        qmr::LimitThenBlendRow(selection, pixels, mean, to.first(width));
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}
