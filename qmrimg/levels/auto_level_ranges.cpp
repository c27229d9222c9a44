// The statistics that automatic levels rest on: the mode of the histogram and what lies within a range of levels.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qmrimg/image/pixel_math.h"
#include "qmrimg/levels/auto_level.h"
#include "qmrimg/levels/level_samples.h"

namespace {

constexpr int kBins = 5000;
constexpr int kBinsOfBytes = 256;
// The histogram has ended after more than this many bins at the noise floor.
constexpr int kQuietBins = 10;

// Images that were loaded with 8 bits a sample have no more than 256 values.
int BinsOf(const CImage& image) {
  const int bits = image.GetOrgBitsPixel();
  return bits == 8 || bits == 24 ? kBinsOfBytes : kBins;
}

// A monochrome image has but one plane to measure.
int PlaneOf(const CImage& image, int plane) {
  return image.IsColor() ? plane : 0;
}

}  // namespace

void CImgAutoLevel::GetMode(float* mode, float* low, float* high, int useLuminance, int nPlane, const CRect* pRect) {
  const qmr::Area area(*this, pRect);
  const bool luminance = useLuminance && qmr::HasRgb(*this);
  const int plane = useLuminance ? 0 : PlaneOf(*this, nPlane);
  const qmr::LevelSpan span =
      useLuminance ? qmr::SpanOf(*this, qmr::Sampling::kLuminance, 0, area) : qmr::SpanOfPlane(*this, plane);
  const int bins = BinsOf(*this);
  std::vector<int> hist(static_cast<std::size_t>(bins));
  GetHistogram(hist.data(), bins, span.min, span.max, luminance ? -1 : plane, 0, 0, 0, pRect, 0, 0);

  int modeBin = 0;
  for (int i = 1; i < bins; ++i)
    if (hist[static_cast<std::size_t>(i)] > hist[static_cast<std::size_t>(modeBin)]) modeBin = i;
  const double step = (span.max - span.min) / bins;
  *mode = static_cast<float>(modeBin * step + span.min);
  if (low) {
    double sigma = 0.0;
    GetLevelDoubleRangeStd(0.0f, *mode, &sigma, useLuminance, nPlane, pRect);
    *low = static_cast<float>(*mode - sigma * 6.0);
  }
  if (high) {
    const std::int64_t pixels = area.Pixels();
    const std::int64_t floor = pixels >= 1100000 ? pixels / 100000 : 10;
    int quiet = 0;
    int bin = modeBin;
    for (; bin < bins; ++bin) {
      quiet = hist[static_cast<std::size_t>(bin)] < floor ? quiet + 1 : 0;
      if (quiet > kQuietBins) break;
    }
    *high = static_cast<float>((bin - modeBin) * step + *mode);
  }
}

void CImgAutoLevel::GetLevelRangeNum(float low, float high, int* count, int nPlane, const CRect* pRect) {
  const qmr::LevelSamples samples(*this, qmr::Sampling::kPlane, PlaneOf(*this, nPlane));
  *count = static_cast<int>(samples.SumRange(qmr::Area(*this, pRect), low, high).count);
}

void CImgAutoLevel::GetLevelRangeStd(float low, float high, double* sigma, int nPlane, const CRect* pRect) {
  const qmr::Area area(*this, pRect);
  const qmr::LevelSamples samples(*this, qmr::Sampling::kPlane, PlaneOf(*this, nPlane));
  const qmr::SampleSums sums = samples.SumRange(area, low, high);
  *sigma = 0.0;
  if (sums.count == 0) return;
  const double mean = sums.sum / static_cast<double>(sums.count);
  *sigma = std::sqrt(samples.SumSquaresRange(area, low, high, mean).sum / static_cast<double>(sums.count));
}

void CImgAutoLevel::GetLevelDoubleRangeStd(float low, float high, double* sigma, int useLuminance, int nPlane,
                                           const CRect* pRect) {
  const qmr::LevelSamples samples(*this, useLuminance ? qmr::Sampling::kRawLuminance : qmr::Sampling::kPlane,
                                  PlaneOf(*this, nPlane));
  const qmr::SampleSums sums = samples.SumSquaresRange(qmr::Area(*this, pRect), low, high, high);
  *sigma = sums.count ? std::sqrt(sums.sum / static_cast<double>(sums.count)) : 0.0;
}
