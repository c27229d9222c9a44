#include "qmrimg/colour/cmy_composit.h"

#include "qmrimg/colour/composition.h"
#include "qmrimg/filters/snapshot.h"

namespace {

constexpr int kMessageCmy = 6136;

// What the frames of cyan, magenta and yellow are read from when they are colour, on purpose not in their own order.
constexpr int kFramePlanes[] = {2, 0, 1};

// The two frames that a primary is part of.
constexpr int kLevelFrames[][2] = {{1, 2}, {2, 0}, {1, 0}};

}  // namespace

CImgCmyComposit::CImgCmyComposit() = default;
CImgCmyComposit::CImgCmyComposit(const CImgCmyComposit& src) = default;
CImgCmyComposit::~CImgCmyComposit() = default;
CImgCmyComposit& CImgCmyComposit::operator=(const CImgCmyComposit& src) = default;

void CImgCmyComposit::Do(CVynImage* cyan, double cyanDx, double cyanDy, double cyanAngle, CVynImage* magenta,
                         double magentaDx, double magentaDy, double magentaAngle, CVynImage* yellow, double yellowDx,
                         double yellowDy, double yellowAngle, int useImageCenter, int method, CRect* pRect, int spare,
                         int bProgress) {
  (void)spare;
  if (!cyan || !magenta || !yellow || Planes < qmr::kRgbPlanes) return;
  qmr::Snapshot before(*this);
  qmr::ComposedPlane planes[] = {{{&before.Of(*cyan), cyanDx, cyanDy, cyanAngle}, 0},
                                 {{&before.Of(*magenta), magentaDx, magentaDy, magentaAngle}, 0},
                                 {{&before.Of(*yellow), yellowDx, yellowDy, yellowAngle}, 0}};
  qmr::Levels levels[qmr::kRgbPlanes];
  for (int i = 0; i < qmr::kRgbPlanes; ++i) {
    const CVynImage& frame = *planes[i].frame.image;
    planes[i].plane = qmr::PlaneOf(frame, kFramePlanes[i]);
    levels[i] = qmr::LevelsOf(frame, planes[i].plane);
  }
  for (int p = 0; p < qmr::kRgbPlanes; ++p) {
    const qmr::Levels mean = qmr::MeanLevels(levels[kLevelFrames[p][0]], levels[kLevelFrames[p][1]]);
    SetLevel(p, mean.min, mean.max);
  }
  const qmr::ComposedRect rect = qmr::ClampRect(*this, pRect);
  ShowProgressInit(bProgress, kMessageCmy, rect.bottom - rect.top);
  qmr::ComposeRows(*this, rect, planes, useImageCenter, method,
                   [](qmr::RgbRows rows, int width) { qmr::CmyToRgbRow(rows, width); });
  ShowProgressEnd(nullptr);
}
