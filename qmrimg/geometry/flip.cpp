#include "qmrimg/geometry/flip.h"

#include "qmrimg/filters/snapshot.h"
#include "qmrimg/geometry/geometry_run.h"

namespace {

constexpr int kMessageVertical = 6127;
constexpr int kMessageHorizontal = 6128;

}  // namespace

CImgFlip::CImgFlip() = default;
CImgFlip::~CImgFlip() = default;

void CImgFlip::Do(int horizontal, CVynImage* source, int bProgress) {
  if (!source) return;
  const int message = horizontal == 0 ? kMessageVertical : kMessageHorizontal;
  ShowProgressInit(bProgress, message, qmr::ReportUnits(Height, Planes));
  if (horizontal == 0 || horizontal == 1) {
    qmr::Snapshot before(*this);
    const CVynImage& from = before.Of(*source);
    qmr::ForPlaneRows(*this, [&](int p, int y) {
      if (horizontal)
        qmr::ReverseRow(from, y, *this, p, y);
      else
        qmr::CopyRow(from, Height - 1 - y, *this, p, y);
    });
  }
  ShowProgressEnd(nullptr);
}
