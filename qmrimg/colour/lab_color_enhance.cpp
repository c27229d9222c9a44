#include "qmrimg/colour/lab_color_enhance.h"

#include "qmrimg/colour/kernels/lab_rows.h"
#include "qmrimg/colour/rgb_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageLabEnhance = 6134;

}  // namespace

CImgLabColorEnhance::CImgLabColorEnhance() = default;
CImgLabColorEnhance::CImgLabColorEnhance(const CImgLabColorEnhance& src) : CVynImage(src) {}
CImgLabColorEnhance::~CImgLabColorEnhance() = default;
CImgLabColorEnhance& CImgLabColorEnhance::operator=(const CImgLabColorEnhance& src) {
  CVynImage::operator=(src);
  return *this;
}

void CImgLabColorEnhance::Do(CVynImage* src, double aPlus, double aMinus, double bPlus, double bMinus, CRect* pRect,
                             int bProgress) {
  if (!src || !qmr::HasRgb(*this)) return;
  qmr::Enhancement enhancement{aPlus, aMinus, bPlus, bMinus, {}};
  for (int p = 0; p < 3; ++p) enhancement.levels[p] = {GetLevelMin(p), GetLevelRange(p)};
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageLabEnhance, Height);
  qmr::ForRows(
      top, bottom,
      [&](int y) {
        qmr::RgbSource from = qmr::ReadRgb(*src, y, left, right);
        qmr::RgbResult to = qmr::WriteRgb(*this, y, left, right);
        qmr::CutToShortest(from, to);
        qmr::EnhanceRow(from, to, enhancement);
      },
      this);
  ShowProgressEnd(nullptr);
}

void CImgLabColorEnhance::Do(CVynImage* src, double aGain, double bGain, CRect* pRect, int bProgress) {
  Do(src, aGain, aGain, bGain, bGain, pRect, bProgress);
}
