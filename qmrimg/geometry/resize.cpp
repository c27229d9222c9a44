#include "qmrimg/geometry/resize.h"

#include <algorithm>

#include "qmrimg/filters/snapshot.h"
#include "qmrimg/geometry/geometry_run.h"

namespace {

constexpr int kMessageResize = 6111;

// Where a source lies on one axis of the canvas, and what of it fits.
struct Span {
  int source;
  int canvas;
  int count;
};

// `place` 0: at the start, 1: in the middle, 2: at the end.
Span Placed(int canvas, int source, int place) {
  const int offset = place == 0 ? 0 : (canvas - source) / (place == 1 ? 2 : 1);
  Span span = {std::max(-offset, 0), std::max(offset, 0), 0};
  span.count = std::min(source - span.source, canvas - span.canvas);
  return span;
}

}  // namespace

CImgResize::CImgResize() = default;
CImgResize::~CImgResize() = default;

int CImgResize::Do(int width, int height, int anchor, float* const fillColor, CVynImage* source, int bProgress) {
  if (!source) return 0;
  qmr::Snapshot before(*this);
  const CVynImage& from = before.Of(*source);
  if (!qmr::MakeSize(*this, width, height, bProgress)) return 0;
  const int place = anchor >= 0 && anchor <= 8 ? anchor : 0;
  const Span x = Placed(Width, from.GetWidth(), place % 3);
  const Span y = Placed(Height, from.GetHeight(), place / 3);
  ShowProgressInit(bProgress, kMessageResize, qmr::ReportUnits(std::int64_t{Height} + y.count, Planes));
  for (int p = 0; p < Planes; ++p) {
    // The levels of plane 0 for all planes, on purpose.
    const float fill = static_cast<float>(ToRaw(static_cast<double>(fillColor ? fillColor[p] : 0.0f), 0));
    qmr::ForRows(
        0, Height, [&](int row) { std::ranges::fill(qmr::WriteRow(*this, row, p, 0, Width), fill); }, this);
    qmr::ForRows(
        0, y.count,
        [&](int row) {
          qmr::CopyRow(qmr::ReadRow(from, y.source + row, p, x.source, x.source + x.count),
                       qmr::WriteRow(*this, y.canvas + row, p, x.canvas, x.canvas + x.count));
        },
        this);
  }
  ShowProgressEnd(nullptr);
  return 1;
}
