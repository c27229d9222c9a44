#include "qmrimg/stacking/composit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "qmrimg/geometry/interp.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/stacking/composit_run.h"

namespace {

constexpr int kMessageComposit = 6107;
constexpr int kMinimum = 9;

// What the short forms stand for.
constexpr double kRatio = 0.5;
constexpr double kThreshold = 0.95;

bool IsWhole(double v) {
  return v == std::trunc(v);
}

}  // namespace

// ---- The run of rows -----------------------------------------------------------------------------------------------

namespace qmr {

int CompositShiftType(double shiftX, double shiftY, double angle) {
  if (angle != 0.0) return 2;
  return IsWhole(shiftX) && IsWhole(shiftY) ? 0 : 1;
}

int CompositMessage(int messageId) {
  return messageId == -1 ? kMessageComposit : messageId;
}

CompositRun::CompositRun(CVynImage* object, const CVynImage& a, int mode, const CompositRule& rule, int to256,
                         const CRect* rect)
    : object_(object),
      a_(a),
      mode_(mode),
      rule_(rule),
      // Modes beyond the table go by way of the 256-scale on purpose.
      to256_(to256 || mode > kMinimum),
      colour_(HasRgb(a)) {
  for (int p = 0; p < 3; ++p) {
    const int from = colour_ ? p : 0;
    const float gain = static_cast<float>(255.0 / a.GetLevelRange(from));
    levels_[p] = {static_cast<float>(a.GetLevelMin(from)), gain, 1.0f / gain};
  }
  object->NormalizeRect(rect, left_, top_, right_, bottom_);
  right_ = std::max(left_, right_);
}

void CompositRun::Run(int bProgress, int messageId, FunctionRef<void(int, int)> range) {
  object_->ShowProgressInit(bProgress, CompositMessage(messageId), bottom_ - top_);
  ForRowRanges(top_, bottom_, range);
  object_->ShowProgressEnd(nullptr);
}

// B's lines stay in a thread's buffer, so that A's row may be the object's.
void CompositRun::Rows(int first, int last, FunctionRef<void(int, float* const*)> lineOfB) {
  const int planes = colour_ ? 3 : 1;
  const std::size_t columns = static_cast<std::size_t>(Columns());
  std::vector<float> buffer(columns * static_cast<std::size_t>(planes));
  float* lines[3] = {};
  for (int p = 0; p < planes; ++p) lines[p] = buffer.data() + static_cast<std::size_t>(p) * columns;
  for (int y = first; y < last; ++y) {
    if (columns > 0) lineOfB(y, lines);
    for (int p = 0; p < planes; ++p) {
      const RowSpans row = RowPair(a_, *object_, y, p, left_, right_);
      const int count = static_cast<int>(row.to.size());
      if (to256_)
        CompositRow256(mode_, rule_, levels_[p], row.from.data(), lines[p], count, row.to.data());
      else
        CompositRow(mode_, rule_, row.from.data(), lines[p], count, row.to.data());
    }
    object_->ShowProgress(1);
  }
}

}  // namespace qmr

// ---- The operation -------------------------------------------------------------------------------------------------

CImgComposit::CImgComposit() = default;
CImgComposit::~CImgComposit() = default;

void CImgComposit::Do(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int useImageCenter,
                      int mode, int method, double ratio, int to256, int clipNegative, double threshold, int neighbor,
                      CRect* pRect, int bProgress, int messageId) {
  if (!a || !b) return;
  if (mode == kMinimum) {
    DoNbrComposit(a, b, shiftX, shiftY, angle, mode, method, ratio, to256, clipNegative, threshold, neighbor, pRect,
                  bProgress, messageId);
  } else {
    DoComposit(a, b, shiftX, shiftY, angle, useImageCenter, mode, method, ratio, to256, clipNegative, threshold,
               neighbor, pRect, bProgress, messageId);
  }
}

void CImgComposit::Do(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int useImageCenter,
                      int mode, int method, int to256) {
  Do(a, b, shiftX, shiftY, angle, useImageCenter, mode, method, kRatio, to256, 0, kThreshold, 0, nullptr, 0, -1);
}

void CImgComposit::Do65(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int mode, double ratio,
                        int to256, int clipNegative, double threshold, int neighbor, CRect* pRect, int bProgress,
                        int messageId) {
  if (!a || !b) return;
  if (mode == kMinimum) {
    Abr(a, b, shiftX, shiftY, angle, mode, ratio, to256, clipNegative, threshold, neighbor, pRect, bProgress,
        messageId);
  } else {
    DoComposit(a, b, shiftX, shiftY, angle, mode, ratio, to256, clipNegative, threshold, neighbor, pRect, bProgress,
               messageId);
  }
}

void CImgComposit::Do65(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int mode, int to256) {
  Do65(a, b, shiftX, shiftY, angle, mode, kRatio, to256, 0, kThreshold, 0, nullptr, 0, -1);
}

double CImgComposit::GetOutsideValue(int mode) const {
  return qmr::CompositOutside(mode);
}

void CImgComposit::DoComposit(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle,
                              int useImageCenter, int mode, int method, double ratio, int to256, int clipNegative,
                              double, int, CRect* pRect, int bProgress, int messageId) {
  qmr::SourceB source(b, this);
  const double radians = angle * qmr::kPi / 180.0;
  const double sine = std::sin(radians);
  const double cosine = std::cos(radians);
  const float outside = static_cast<float>(GetOutsideValue(mode));
  qmr::CompositRun run(this, *a, mode, {ratio, clipNegative != 0}, to256, pRect);
  const double xStart = run.Left() - shiftX;
  const double xEnd = run.Left() + run.Columns() - shiftX;
  run.Run(bProgress, messageId, [&](int first, int last) {
    CInterp interp(method);
    interp.SetBParam(qmr::CompositShiftType(shiftX, shiftY, angle), source.Get(), xStart, xEnd, run.To256(), outside,
                     run.Plane(), sine, cosine, 1.0, useImageCenter);
    interp.SetRowWidth(run.Columns());
    run.Rows(first, last,
             [&](int y, float* const* lines) { interp.GetBLine(y - shiftY, lines[0], lines[1], lines[2]); });
  });
}
