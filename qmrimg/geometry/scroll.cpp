#include "qmrimg/geometry/scroll.h"

#include "qmrimg/filters/snapshot.h"
#include "qmrimg/geometry/geometry_run.h"

namespace {

constexpr int kMessageScroll = 6146;

// The non-negative remainder; `size` is positive.
int Reduced(int shift, int size) {
  const int rest = shift % size;
  return rest < 0 ? rest + size : rest;
}

}  // namespace

CImgScroll::CImgScroll() = default;
CImgScroll::~CImgScroll() = default;

void CImgScroll::Do(int shift, int horizontal, CVynImage* source, int bProgress) {
  if (!source) return;
  qmr::Snapshot before(*this);
  const CVynImage& from = before.Of(*source);
  InitStdPtCtr();
  ShowProgressInit(bProgress, kMessageScroll, qmr::ReportUnits(Height, Planes));
  const int size = horizontal ? Width : Height;
  const int moved = size > 0 ? Reduced(shift, size) : 0;
  qmr::ForPlaneRows(*this, [&](int p, int y) {
    if (horizontal) {
      qmr::CopyRow(qmr::ReadRow(from, y, p, 0, Width - moved), qmr::WriteRow(*this, y, p, moved, Width));
      qmr::CopyRow(qmr::ReadRow(from, y, p, Width - moved, Width), qmr::WriteRow(*this, y, p, 0, moved));
    } else {
      // Up, on purpose, while the other direction is right. The sum would overflow for the tallest images.
      qmr::CopyRow(from, y < Height - moved ? y + moved : y - (Height - moved), *this, p, y);
    }
  });
  ShowProgressEnd(nullptr);
}
