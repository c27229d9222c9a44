// The members that define the development on tiles of rows.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qmrimg/image/kernels/level_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/raw/bayer_to_rgb.h"
#include "qmrimg/raw/kernels/bayer_rows.h"
#include "qmrimg/raw/kernels/bayer_tile.h"
#include "qmrimg/raw/kernels/tone_rows.h"
#include "qmrimg/raw/mosaic_run.h"

namespace {

// Rows above and below the pair in the middle of a tile.
constexpr DWORD kRowsAbove = 3;
constexpr DWORD kRowsOfTile = 8;

bool IsTile(DWORD width, DWORD rows) {
  return width >= 6 && width <= 0x7fffffff && rows == kRowsOfTile;
}

qmr::TileShape ShapeOf(const tagBayerStruct& bayer, DWORD width, DWORD rows) {
  return {static_cast<int>(width), static_cast<int>(rows), qmr::BayerLayout::Of(bayer.pattern)};
}

}  // namespace

int CImgBayerToRgb::CopySrcToBayer(CImage* work, int useGain) {
  return qmr::CopyMosaic(*this, work, useGain);
}

int CImgBayerToRgb::ChangeBitImage(CImage* image, int srcBits, int dstBits, int autoRange) {
  const bool isFloat = srcBits == -32 && dstBits == -32;
  const bool isInteger = (srcBits == 12 || srcBits == 14) && dstBits == 16;
  if (!image || !(isFloat || isInteger)) return 0;
  qmr::ChangeSampleBits(*image, srcBits, dstBits, autoRange,
                        [image](double* min, double* max) { image->GetMinMax(0, min, max); });
  return 1;
}

int CImgBayerToRgb::ToneCurveCorrect(CImage* work, int plane, tagBayerStruct* bayer, float lo, float hi) {
  if (!work || !bayer || !bayer->gains || plane < 0 || plane >= work->GetPlanes()) return 0;
  std::vector<qmr::GainCurve> curves;
  for (int site = 0; site < 4; ++site)
    curves.emplace_back(bayer->gains[site], lo, hi, bayer->useKnee != 0, bayer->clip != 0);
  qmr::ForRows(0, work->GetHeight(), [&](int y) {
    const std::size_t even = static_cast<std::size_t>(y & 1) * 2;
    qmr::ApplyGainPairs(qmr::WriteRow(*work, y, plane, 0, work->GetWidth()), curves[even], curves[even + 1]);
  });
  return 1;
}

int CImgBayerToRgb::CopyOrgToDisp(CImage* work, float* tile, int plane, DWORD y, DWORD width, DWORD height,
                                  DWORD rows) {
  if (!work || !tile || plane < 0 || plane > 1 || y < kRowsAbove || height < 4 || y > height - 4) return 0;
  for (DWORD r = 0; r < rows; ++r) {
    const std::span<const float> row =
        qmr::ReadRow(*work, static_cast<int>(y - kRowsAbove + r), plane, 0, static_cast<int>(width));
    if (row.size() != width) return 0;
    std::copy(row.begin(), row.end(), tile + static_cast<std::size_t>(r) * width);
  }
  return 1;
}

int CImgBayerToRgb::MakeYImage(float* tile, float* buffer, tagBayerStruct* bayer, int plane, DWORD width, DWORD rows) {
  if (!tile || !buffer || !bayer || !qmr::BayerLayout::IsPattern(bayer->pattern) || !IsTile(width, rows)) return 0;
  qmr::MakeTileLuminance(tile, buffer, ShapeOf(*bayer, width, rows),
                         plane == 0 ? qmr::kTileLuminance : qmr::kTileGainedLuminance);
  return 1;
}

int CImgBayerToRgb::MakeRGBImage(float* tile, float* buffer, tagBayerStruct* bayer, int plane, DWORD width,
                                 DWORD rows) {
  (void)plane;
  if (!tile || !buffer || !bayer || !qmr::BayerLayout::IsPattern(bayer->pattern) || !IsTile(width, rows)) return 0;
  qmr::MakeTileColours(tile, ShapeOf(*bayer, width, rows));
  return 1;
}

int CImgBayerToRgb::SynthImage(float* tile, tagBayerStruct* bayer, int mode, DWORD y, DWORD rows, DWORD width, float lo,
                               float hi) {
  if (!tile || !bayer || mode < 0 || mode > 2 || !qmr::BayerLayout::IsPattern(bayer->pattern) || !IsTile(width, rows))
    return 0;
  const qmr::TileShape shape = ShapeOf(*bayer, width, rows);
  const qmr::TilePlane base = mode == 2 ? qmr::kTileGainedLuminance : qmr::kTileLuminance;
  const qmr::TilePlane reference = mode == 0 ? qmr::kTileLuminance : qmr::kTileGainedLuminance;
  constexpr qmr::TilePlane kColours[3] = {qmr::kTileFirst, qmr::kTileGreen, qmr::kTileSecond};
  const int left = std::max(bayer->leftMargin, 1);
  const std::int64_t right = std::int64_t{width} - std::max(bayer->rightMargin, 1);
  for (int r = static_cast<int>(kRowsAbove); r <= static_cast<int>(rows) - 4; ++r) {
    const std::int64_t row = std::int64_t{y} - bayer->topMargin + r - kRowsAbove;
    if (row < 0 || row >= Height) continue;
    for (int p = 0; p < (bayer->isMono ? 1 : 3); ++p) {
      const std::span<float> out = qmr::WriteRow(*this, static_cast<int>(row), p, 0, Width);
      if (out.empty()) return 0;
      const std::int64_t end = std::min<std::int64_t>(right, left + static_cast<std::int64_t>(out.size()));
      for (int c = left; c < end; ++c) {
        out[static_cast<std::size_t>(c - left)] =
            bayer->isMono ? tile[base * static_cast<std::size_t>(rows) * width + static_cast<std::size_t>(r) * width +
                                 static_cast<std::size_t>(c)]
                          : qmr::SynthesizeTileSite(tile, shape, base, reference, kColours[p], r, c);
      }
      if (bayer->clip && end > left) qmr::LimitRow(out.first(static_cast<std::size_t>(end - left)), lo, hi);
    }
  }
  return 1;
}
