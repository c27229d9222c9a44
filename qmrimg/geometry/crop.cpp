#include "qmrimg/geometry/crop.h"

#include "qmrimg/filters/snapshot.h"
#include "qmrimg/geometry/geometry_run.h"

namespace {

constexpr int kMessageCrop = 6172;

}  // namespace

CImgCrop::CImgCrop() = default;
CImgCrop::~CImgCrop() = default;

int CImgCrop::Do(CRect rect, CVynImage* source, int bProgress) {
  if (!source) return 0;
  int left, top, right, bottom;
  source->NormalizeRect(&rect, left, top, right, bottom);
  if (left >= right || top >= bottom) return 0;
  qmr::Snapshot before(*this);
  const CVynImage& from = before.Of(*source);
  if (!qmr::MakeSize(*this, right - left, bottom - top, bProgress)) return 0;
  // Twice the rows that are copied, on purpose: hosts see a crop end at half.
  ShowProgressInit(bProgress, kMessageCrop, qmr::ReportUnits(std::int64_t{2} * Height, Planes));
  qmr::ForPlaneRows(*this, [&](int p, int y) {
    qmr::CopyRow(qmr::ReadRow(from, top + y, p, left, right), qmr::WriteRow(*this, y, p, 0, Width));
  });
  ShowProgressEnd(nullptr);
  return 1;
}
