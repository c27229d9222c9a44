#include "qmrimg/colour/rgb_cmpst.h"

#include "qmrimg/colour/composition.h"
#include "qmrimg/filters/snapshot.h"

namespace {

constexpr int kMessageRgb = 6108;

}  // namespace

CImgRgbCmpst::CImgRgbCmpst() = default;
CImgRgbCmpst::CImgRgbCmpst(const CImgRgbCmpst& src) = default;
CImgRgbCmpst::~CImgRgbCmpst() = default;
CImgRgbCmpst& CImgRgbCmpst::operator=(const CImgRgbCmpst& src) = default;

void CImgRgbCmpst::Do(CVynImage* red, double redDx, double redDy, double redAngle, CVynImage* green, double greenDx,
                      double greenDy, double greenAngle, CVynImage* blue, double blueDx, double blueDy,
                      double blueAngle, int useImageCenter, int method, CRect* pRect, int* enable, int bProgress) {
  if (Planes < qmr::kRgbPlanes) return;
  qmr::ComposedPlane planes[] = {{{red, redDx, redDy, redAngle}, 0},
                                 {{green, greenDx, greenDy, greenAngle}, 1},
                                 {{blue, blueDx, blueDy, blueAngle}, 2}};
  const auto enabled = [enable](int p) { return !enable || enable[p]; };
  for (int p = 0; p < qmr::kRgbPlanes; ++p) {
    if (enabled(p) && !planes[p].frame.image) return;
  }
  qmr::Snapshot before(*this);
  for (int p = 0; p < qmr::kRgbPlanes; ++p) {
    CVynImage*& frame = planes[p].frame.image;
    if (!frame) continue;
    frame = &before.Of(*frame);
    planes[p].plane = qmr::PlaneOf(*frame, p);
  }
  const qmr::ComposedRect rect = qmr::ClampRect(*this, pRect);
  for (int p = 0; p < qmr::kRgbPlanes; ++p) {
    CVynImage*& frame = planes[p].frame.image;
    if (!frame) continue;
    const qmr::Levels levels = qmr::LevelsOf(*frame, planes[p].plane);
    SetLevel(p, levels.min, levels.max);
    if (!enabled(p)) frame = nullptr;
  }
  ShowProgressInit(bProgress, kMessageRgb, rect.bottom - rect.top);
  qmr::ComposeRows(*this, rect, planes, useImageCenter, method, [](qmr::RgbRows, int) {});
  ShowProgressEnd(nullptr);
}
