#include "qmrimg/colour/color_balance.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "qmrimg/colour/kernels/colour_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/store/parallel.h"

namespace {

constexpr int kMessageColorBalance = 6118;
constexpr int kOffsets = 3;

}  // namespace

CImgColorBalance::CImgColorBalance() = default;
CImgColorBalance::CImgColorBalance(const CImgColorBalance& src) : CVynImage(src) {}
CImgColorBalance::~CImgColorBalance() = default;
CImgColorBalance& CImgColorBalance::operator=(const CImgColorBalance& src) {
  CVynImage::operator=(src);
  return *this;
}

void CImgColorBalance::Do(double red, double green, double blue, CVynImage* src, CRect* pRect, int bProgress) {
  if (!src || Planes == 2) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  // Plane 0's range scales all three, on purpose: the arguments are on its 256-scale.
  const float unit = static_cast<float>(GetLevelRange(0)) / 255.0f;
  const float offsets[kOffsets] = {static_cast<float>(red) * unit, static_cast<float>(green) * unit,
                                   static_cast<float>(blue) * unit};
  const std::int64_t units = (static_cast<std::int64_t>(bottom) - top) * Planes;
  ShowProgressInit(bProgress, kMessageColorBalance,
                   static_cast<int>(std::min<std::int64_t>(units, std::numeric_limits<int>::max())));
  if (CKorSys::SIMD() & 2)
    DoColorBalance_x(offsets, src, left, right, top, bottom);
  else
    DoColorBalance(offsets, src, left, right, top, bottom);
  ShowProgressEnd(nullptr);
}

void CImgColorBalance::DoColorBalance(const float* offsets, CVynImage* src, int left, int right, int top, int bottom) {
  // A plane without an offset stays; its rows count, since they were announced.
  for (int p = 0; p < Planes; ++p) {
    qmr::ForRowsSerial(
        top, bottom,
        [&](int y) {
          if (p >= kOffsets) return;
          const auto [from, to] = qmr::RowPair(*src, *this, y, p, left, right);
          qmr::OffsetRow(from, to, offsets[p]);
        },
        this);
  }
}

void CImgColorBalance::DoColorBalance_x(const float* offsets, CVynImage* src, int left, int right, int top,
                                        int bottom) {
  for (int p = 0; p < Planes; ++p) {
    qmr::ForRows(
        top, bottom,
        [&](int y) {
          if (p >= kOffsets) return;
          const auto [from, to] = qmr::RowPair(*src, *this, y, p, left, right);
          qmr::OffsetRowStreaming(from, to, left, offsets[p]);
        },
        this);
  }
}
