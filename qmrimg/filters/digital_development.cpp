// Digital development in two steps: masks and constants, then the division.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_special.h"
#include "qmrimg/filters/kernels/development_rows.h"
#include "qmrimg/filters/separable_scan.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/level_samples.h"
#include "qmrimg/platform/debug_output.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageDevelopment = 6116;
// An image has three engines, and so three masks.
constexpr int kMasks = 3;
// Numbers from here on mean all three masks.
constexpr int kMeanMask = 3;
constexpr int kNoMask = -1;

enum KernelType { kGaussian = 0, kDisc = 1 };
enum RangeMode { kFromZero = 0, kFromMinimum = 1, kFromMinimumToLevel = 2, kFromLevel = 3 };

float Exponent(double gamma) {
  return static_cast<float>(1.0 / gamma);
}

int PlanesOf(const CVynImage& image) {
  return std::min(image.GetPlanes(), kMasks);
}

qmr::Development ConstantsOf(const CVynImage& image, int p, float offset, float multiplier,
                             const qmr::GammaCurve& gamma) {
  const double min = image.GetLevelMin(p), range = image.GetLevelRange(p);
  return {{static_cast<float>(min), static_cast<float>(255.0 / range)}, min, range, offset, multiplier, gamma};
}

}  // namespace

CImgFilterSpecial::CImgFilterSpecial() = default;
CImgFilterSpecial::~CImgFilterSpecial() = default;

void CImgFilterSpecial::DigitalDvlp1(double* level, int kernelType, double* radius, double weight, double* gamma,
                                     int minMaxMode, CVynImage* source, float* gammaMin, float* gammaSpan,
                                     float* offset, float* multiplier, int gammaAfter) {
  OutputDebugStringW(L"CImgFilterSpecial::DigitalDvlp1\n");
  if (!source || (kernelType != kGaussian && kernelType != kDisc)) return;
  for (int p = 0; p < std::min(PlanesOf(*this), source->GetPlanes()); ++p) {
    CFilterMatrix matrix;
    if (kernelType == kGaussian) {
      matrix.SetGaussianSigma(radius[p]);
    } else {
      const std::int64_t matrixRadius = std::max<std::int64_t>(1, 2 * std::int64_t{qmr::TruncateToInt(radius[p])});
      matrix.SetWeightedDisc(static_cast<int>(std::min<std::int64_t>(matrixRadius, INT32_MAX)), radius[p], weight);
    }
    MakeFilterProc(source, &matrix, p, 1);
  }
  float gammaMax[kMasks] = {};
  DigitalDvlpGetMinMax(minMaxMode, source, gammaMin, gammaMax, gammaSpan);
  // Plane 0 alone decides for all planes.
  qmr::GammaCurve curve;
  if (!gammaAfter && Planes > 0) curve = {Exponent(gamma[0]), gammaMin[0], gammaSpan[0]};
  const float a = To256(qmr::Bend(static_cast<float>(level[0]), curve), 0);
  const float k = a + To256(qmr::Bend(qmr::MedianOf(*source, 1, qmr::Sampling::kPlane, 0, nullptr), curve), 0);
  std::fill_n(offset, kMasks, a);
  std::fill_n(multiplier, kMasks, k);
}

void CImgFilterSpecial::DigitalDvlp2(int develop, double* gamma, CVynImage* source, int* maskPlane, float* gammaMin,
                                     float* gammaSpan, float* offset, float* multiplier, CRect* pRect, int bProgress) {
  OutputDebugStringW(L"CImgFilterSpecial::DigitalDvlp2\n");
  if (!source) return;
  qmr::Development planes[kMasks] = {};
  for (int p = 0; p < PlanesOf(*this); ++p) {
    const qmr::GammaCurve curve{Exponent(gamma[p]), gammaMin[p], gammaSpan[p]};
    planes[p] = ConstantsOf(*this, p, offset[p], multiplier[p], curve);
  }
  Develop(true, develop, planes, maskPlane, source, pRect, bProgress);
}

void CImgFilterSpecial::DigitalDvlpGmAftrDdp(int develop, double* gamma, CVynImage* source, int* maskPlane,
                                             float* /*gammaMin*/, float* /*gammaSpan*/, float* offset,
                                             float* multiplier, CRect* pRect, int bProgress) {
  OutputDebugStringW(L"CImgFilterSpecial::DigitalDvlpGmAftrDdp\n");
  if (!source) return;
  qmr::Development planes[kMasks] = {};
  for (int p = 0; p < PlanesOf(*this); ++p) {
    const qmr::GammaCurve curve{Exponent(gamma[p]), 0.0f, 255.0f};
    planes[p] = ConstantsOf(*this, p, offset[p], multiplier[p], curve);
  }
  Develop(false, develop, planes, maskPlane, source, pRect, bProgress);
}

void CImgFilterSpecial::Develop(bool gammaFirst, int develop, const qmr::Development (&planes)[3], const int* maskPlane,
                                CVynImage* source, const CRect* pRect, int bProgress) {
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageDevelopment, (bottom - top) * Planes);
  const int count = std::min(PlanesOf(*this), source->GetPlanes());
  qmr::Snapshot before(*this);
  const CVynImage* images[kMasks] = {};
  for (int i = 0; i < kMasks && develop; ++i)
    if (!FilterProc[i].IsEmpty()) images[i] = &before.Of(*FilterProc[i].GetSource());
  // Planes with the same masks go together, so that a mask is made once.
  for (int mask = kNoMask; mask <= kMeanMask; ++mask) {
    std::vector<int> users;
    for (int p = 0; p < count; ++p)
      if (mask == (develop ? std::clamp(maskPlane[p], kNoMask, kMeanMask) : kNoMask)) users.push_back(p);
    if (users.empty()) continue;
    std::vector<int> engines;
    for (int i = 0; i < kMasks; ++i)
      if ((mask == i || mask == kMeanMask) && images[i]) engines.push_back(i);
    // A mean of less than three is none.
    if (mask == kMeanMask && engines.size() < kMasks) engines.clear();
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      std::vector<qmr::SeparableScan> scans;
      scans.reserve(kMasks);
      qmr::MaskRows masks;
      masks.count = static_cast<int>(engines.size());
      for (const int i : engines) {
        masks.scales[scans.size()] = planes[i].scale;
        scans.emplace_back(*images[i], FilterProc[i].GetPlane(), FilterProc[i].GetKernel(), left, right, last);
      }
      for (int y = first; y < last; ++y) {
        for (std::size_t i = 0; i < scans.size(); ++i) masks.rows[i] = scans[i].Row(y);
        for (const int p : users) {
          const auto [from, to] = qmr::RowPair(*source, *this, y, p, left, right);
          if (develop)
            (gammaFirst ? qmr::BendThenDevelopRow : qmr::DevelopThenBendRow)(planes[p], masks, from, to);
          else
            qmr::BendRow(gammaFirst ? planes[p].gamma : qmr::GammaCurve{}, from, to);
          ShowProgress(1);
        }
      }
    });
  }
  ShowProgressEnd(nullptr);
}

void CImgFilterSpecial::DigitalDvlpGetMinMax(int minMaxMode, CVynImage* source, float* min, float* max, float* span) {
  if (!source) return;
  if (minMaxMode >= kFromZero && minMaxMode <= kFromLevel) {
    min[0] = minMaxMode == kFromZero    ? 0.0f
             : minMaxMode == kFromLevel ? static_cast<float>(GetLevelMin(0))
                                        : source->GetMinPixel(0);
    max[0] = minMaxMode == kFromMinimumToLevel ? static_cast<float>(source->GetLevelMax(0)) : source->GetMaxPixel(0);
    // Two planes keep what came in, on purpose.
    for (int p = 1; p < kMasks && Planes == kMasks; ++p) {
      min[p] = minMaxMode == kFromLevel ? static_cast<float>(GetLevelMin(p)) : ToRaw(To256(min[0], 0), p);
      max[p] = ToRaw(To256(max[0], 0), p);
    }
  }
  for (int p = 0; p < kMasks; ++p) span[p] = max[p] - min[p];
}

void CImgFilterSpecial::DigitalDvlpGetLevel(double* gamma, int minMaxMode, CVynImage* source, double* levelLow,
                                            double* levelHigh) {
  if (!source) return;
  float min[kMasks] = {}, max[kMasks] = {}, span[kMasks] = {};
  DigitalDvlpGetMinMax(minMaxMode, source, min, max, span);
  for (int p = 0; p < PlanesOf(*this); ++p) {
    // The gamma itself decides here, not its reciprocal. A high level beyond the curve leaves both alone, on purpose.
    if (gamma[p] == 1.0 || std::isnan(levelLow[p]) || !(levelHigh[p] <= max[p])) continue;
    const qmr::GammaCurve curve{Exponent(gamma[p]), min[p], span[p]};
    for (double* const level : {&levelLow[p], &levelHigh[p]}) {
      // Where the curve does not act, a level is not even rounded to float.
      if (*level > min[p]) *level = qmr::Bend(static_cast<float>(*level), curve);
    }
  }
}
