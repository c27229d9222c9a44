// The members that the development is defined with, and what is measured on mosaics.
#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <span>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/honeycomb_sites.h"
#include "qmrimg/levels/site_medians.h"
#include "qmrimg/raw/honeycomb_to_rgb.h"
#include "qmrimg/raw/kernels/honeycomb_band.h"
#include "qmrimg/raw/kernels/tone_rows.h"
#include "qmrimg/raw/mosaic_run.h"

namespace {

constexpr int kRowsAbove = 4;
constexpr int kRowsOfTile = 14;

}  // namespace

int CImgHoneyCombToRgb::CopySrcToDstImage(CImage* work, int useGain) {
  return qmr::CopyMosaic(*this, work, useGain);
}

int CImgHoneyCombToRgb::ChangeBitImage(CImage* image, int srcBits, int dstBits, int autoRange) {
  if (!image || !((srcBits == 12 && dstBits == 16) || (srcBits == -32 && dstBits == -32))) return 0;
  qmr::ChangeSampleBits(*image, srcBits, dstBits, autoRange,
                        [this, image](double* min, double* max) { GetMinMax(image, 0, min, max); });
  return 1;
}

int CImgHoneyCombToRgb::ToneCurveCorrect(CImage* work, const tagHoneyCombStruct* honeycomb, float lo, float hi) {
  if (!work || !honeycomb || !honeycomb->gains || work->GetPlanes() < 2) return 0;
  std::array<qmr::GainCurve, 8> curves;
  for (std::size_t site = 0; site < curves.size(); ++site)
    curves[site] = {honeycomb->gains[site], lo, hi, honeycomb->useKnee != 0, honeycomb->clip != 0};
  const qmr::HoneycombSite origin = qmr::HoneycombOrigin(*this);
  qmr::ForRows(0, work->GetHeight(), [&](int y) {
    const std::span<float> row = qmr::WriteRow(*work, y, 1, 0, work->GetWidth());
    for (std::size_t x = y & 1 ? 0 : 1; x < row.size(); x += 2) {
      const int site = qmr::HoneycombSiteAt(y - origin.row, static_cast<int>(x & 3) - origin.column);
      qmr::ApplyGainRow(row.subspan(x, 1), curves[static_cast<std::size_t>(site)]);
    }
  });
  return 1;
}

int CImgHoneyCombToRgb::CImageToMem(CImage* work, int y, int plane, float* tile) {
  if (!work || !tile || plane < 0 || plane >= work->GetPlanes()) return 0;
  const int height = work->GetHeight();
  if (y < 0 || y >= height || height < 10) return 0;
  for (int r = 0; r < kRowsOfTile; ++r) {
    const int from = qmr::HoneycombSourceRow(y - kRowsAbove + r, height, y & 3);
    const std::span<const float> row = qmr::ReadRow(*work, from, plane, 0, work->GetWidth());
    if (row.empty()) return 0;
    tile = std::copy(row.begin(), row.end(), tile);
  }
  return 1;
}

int CImgHoneyCombToRgb::GammaCorrect(CImage* image, const tagHoneyCombStruct* honeycomb) {
  return honeycomb ? qmr::CorrectGamma(this, image, honeycomb->dstBits, honeycomb->gamma) : 0;
}

int CImgHoneyCombToRgb::GetGain(int pattern, double* gains) {
  (void)pattern;
  if (!gains || !VmImage || BitsPixel != -32) return 0;
  qmr::HoneycombGains(*this, gains, 1);
  return 1;
}

void CImgHoneyCombToRgb::GetMinMax(CImage* image, int plane, double* min, double* max) {
  struct Range {
    double min = std::numeric_limits<double>::max();
    double max = -std::numeric_limits<double>::max();
  };
  const auto wider = [](Range a, const Range& b) {
    if (b.min < a.min) a.min = b.min;
    if (b.max > a.max) a.max = b.max;
    return a;
  };
  Range range;
  if (image) {
    // No border at the bottom, on purpose, unlike in the medians.
    const bool hasBorder = qmr::HasHoneycombBorder(*this);
    const int left = hasBorder ? qmr::kHoneycombBorderColumns : 0;
    const int top = hasBorder ? qmr::kHoneycombBorderRows : 0;
    const auto rowRange = [&](int y) {
      Range r;
      const std::span<const float> row = qmr::ReadRow(*image, y, plane, left, image->GetWidth() - left);
      for (std::size_t x = y & 1 ? 0 : 1; x < row.size(); x += 2) r = wider(r, {row[x], row[x]});
      return r;
    };
    range = qmr::FoldRows(top, image->GetHeight(), range, rowRange, wider);
  }
  if (min) *min = range.min;
  if (max) *max = range.max;
}
