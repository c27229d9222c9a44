#include "qmrimg/image/invert.h"

#include "qmrimg/image/kernels/invert_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kMessageInvert = 6124;

qmr::InvertLevels LevelsOf(const CVynImage& src, const CVynImage& dst, int plane) {
  return {static_cast<float>(src.GetLevelMin(plane)), 1.0f / static_cast<float>(src.GetLevelRange(plane)),
          static_cast<float>(dst.GetLevelMin(plane)), static_cast<float>(dst.GetLevelRange(plane))};
}

}  // namespace

CImgInvert::CImgInvert() = default;
CImgInvert::~CImgInvert() = default;

void CImgInvert::Do(CVynImage* src, CRect* pRect, int bProgress) {
  if (!src) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageInvert, (bottom - top) * Planes);
  if (CKorSys::SIMD() & 2)
    DoInvert_x(src, left, right, top, bottom);
  else
    DoInvert(src, left, right, top, bottom);
  ShowProgressEnd(nullptr);
}

void CImgInvert::DoInvert(CVynImage* src, int left, int right, int top, int bottom) {
  for (int p = 0; p < Planes; ++p) {
    const qmr::InvertLevels levels = LevelsOf(*src, *this, p);
    qmr::ForRowsSerial(
        top, bottom,
        [&](int y) {
          const auto [from, to] = qmr::RowPair(*src, *this, y, p, left, right);
          qmr::InvertRow(from, to, levels);
        },
        this);
  }
}

void CImgInvert::DoInvert_x(CVynImage* src, int left, int right, int top, int bottom) {
  for (int p = 0; p < Planes; ++p) {
    const qmr::InvertLevels levels = LevelsOf(*src, *this, p);
    qmr::ForRows(
        top, bottom,
        [&](int y) {
          const auto [from, to] = qmr::RowPair(*src, *this, y, p, left, right);
          qmr::InvertRowStreaming(from, to, left, levels);
        },
        this);
  }
}

float CImgInvert::InvertPixel(float v, float srcMin, float invSrcRange, float dstMin, float dstRange) const {
  return qmr::InvertPixel(v, {srcMin, invSrcRange, dstMin, dstRange});
}
