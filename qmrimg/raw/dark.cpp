#include "qmrimg/raw/dark.h"

#include <cmath>
#include <span>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/raw/kernels/dark_rows.h"

namespace {

constexpr int kMessageInterpolate = 6183;

// Runs `blend(first, second)` on the common part of each row.
template <class Blend>
void BlendRows(CVynImage& dark1, const CVynImage* dark2, int bProgress, Blend blend) {
  const int height = dark1.GetHeight();
  dark1.ShowProgressInit(bProgress, kMessageInterpolate, height * dark1.GetPlanes());
  for (int p = 0; p < dark1.GetPlanes(); ++p) {
    qmr::ForRowsSerial(
        0, height,
        [&](int y) {
          if (!dark2) return;
          const auto [second, first] = qmr::RowPair(*dark2, dark1, y, p, 0, dark1.GetWidth());
          blend(first, second);
        },
        &dark1);
  }
  if (bProgress) dark1.ShowProgressEnd(nullptr);
}

}  // namespace

CImgDark::CImgDark() = default;
CImgDark::CImgDark(const CImgDark& src) : CVynImage(src) {}
CImgDark::~CImgDark() = default;

CImgDark& CImgDark::operator=(const CImgDark& src) {
  CVynImage::operator=(src);
  return *this;
}

void CImgDark::DoInterpolateByProportion(CVynImage* dark2, double a1, double a2, double a3, double b1, double b2,
                                         double b3, int bProgress) {
  const double r1 = (a3 - a1) / (a2 - a1);
  const double r2 = (b3 - b1) / (b2 - b1);
  BlendRows(*this, dark2, bProgress, [&](std::span<float> first, std::span<const float> second) {
    qmr::BlendByProportionRow(first, second, r1, r2);
  });
}

void CImgDark::DoInterpolateByPower(CVynImage* dark2, double a1, double a2, double a3, double b1, double b2, double b3,
                                    double doubling, int bProgress) {
  const double r = (a3 - a1) / (a2 - a1);
  const double near = std::fabs(b2 - b3) > std::fabs(b3 - b1) ? b1 : b2;
  // Only b3 is divided by `doubling`, not the difference, on purpose: hosts fit their quantities to this form.
  const double power = std::pow(2.0, near - b3 / doubling);
  BlendRows(*this, dark2, bProgress, [&](std::span<float> first, std::span<const float> second) {
    qmr::BlendByPowerRow(first, second, r, power);
  });
}

void CImgDark::DoInterpolateByScore(CVynImage* dark2, double score, double score1, double score2, int bProgress) {
  const double r = (score - score1) / (score2 - score1);
  BlendRows(*this, dark2, bProgress,
            [&](std::span<float> first, std::span<const float> second) { qmr::BlendByScoreRow(first, second, r); });
}
