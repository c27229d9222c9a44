// Rows of CInterp.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>

#include "qmrimg/geometry/interp.h"
#include "qmrimg/geometry/kernels/line_scale.h"
#include "qmrimg/geometry/row_plan.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kShiftWhole = 0;
constexpr int kShiftFraction = 1;
constexpr int kRotation = 2;

// Planes that are sampled together, so that a turned row makes its weights once.
constexpr int kTogether = 3;

// The standard library's lack of memory as the exception of this library.
template <class Body>
auto WithMemoryException(Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

}  // namespace

// ---- What a row covers ---------------------------------------------------------------------------------------------

// floor(xEnd) - floor(xStart) columns, one more when inclusive. A start just below a whole number whose end was
// rounded up to one would make that one column too long: where xEnd - xStart is whole but for the rounding of the
// two (callers may have rounded them to float) it is the length.
int CInterp::RowLength(bool inclusive) const {
  if (rowWidth > 0) return rowWidth;
  std::int64_t length = static_cast<std::int64_t>(xEndInt) - xStartInt;
  const double difference = xEnd - xStart;
  const double whole = std::floor(difference + 0.5);
  const double rounding = (std::fabs(xStart) + std::fabs(xEnd)) * 5.9604644775390625e-8;
  if (std::fabs(difference - whole) <= rounding && whole < 2147483647.0)
    length = std::min(length, static_cast<std::int64_t>(std::max(whole, -1.0)));
  if (inclusive) ++length;
  return static_cast<int>(std::clamp<std::int64_t>(length, 0, std::numeric_limits<int>::max()));
}

// Whether the rows at hand are those of the geometry that the mapping was made for.
bool CInterp::HasRows() const {
  return rowTable && tableWidth == width && tableHeight == height;
}

namespace {

// The columns of a row of `count` from source column `first` on that exist in a source of `width` columns.
void CutToSource(int first, int count, int width, int* begin, int* end) {
  const std::int64_t from = first;
  *begin = static_cast<int>(std::clamp<std::int64_t>(-from, 0, count));
  *end = static_cast<int>(std::clamp<std::int64_t>(width - from, *begin, count));
}

}  // namespace

CInterp::RowPlan CInterp::PlanInt(int y, bool median) {
  RowPlan plan = {};
  plan.kind = RowPlan::kCopy;
  plan.count = RowLength(median);
  if (!HasRows() || y < 0 || y >= height) return plan;
  CutToSource(xStartInt, plan.count, width, &plan.begin, &plan.end);
  plan.column = static_cast<int>(static_cast<std::int64_t>(xStartInt) + plan.begin);
  plan.row = y;
  return plan;
}

CInterp::RowPlan CInterp::PlanFloat(double y, bool median) {
  RowPlan plan = {};
  plan.kind = RowPlan::kShift;
  plan.count = RowLength(median);
  plan.y = y;
  // The last row's far half is outside in an ordinary row and inside in a median row, on purpose.
  if (!HasRows() || !(y >= 0.0) || (median ? !(y < height) : !(y <= height - 1))) return plan;
  const double fraction = xStart - std::floor(xStart);
  if (!(fraction >= 0.0)) return plan;
  CutToSource(xStartInt, plan.count, width, &plan.begin, &plan.end);
  plan.shifted.count = plan.end - plan.begin;
  if (median) {
    plan.shifted.column = static_cast<int>(static_cast<std::int64_t>(xStartInt) + plan.begin);
    plan.shifted.start = fraction;
  } else {
    plan.shifted.accumulate = true;
    plan.shifted.start = xStartInt < 0 ? fraction : xStart;
  }
  return plan;
}

CInterp::RowPlan CInterp::PlanRotate(double y, bool median) {
  RowPlan plan = {};
  plan.kind = RowPlan::kTurn;
  plan.count = RowLength(median);
  plan.y = y;
  if (!HasRows()) return plan;
  // Shift and scale are left out on purpose: the shift is in xStart and y already.
  const double dx = xStart - center.x;
  const double dy = center.y - y;
  const double sx = cosValue * dx - sinValue * dy + center.x;
  const double sy = center.y - (sinValue * dx + cosValue * dy);
  const qmr::TurnedColumns columns = {sx, sy, cosValue, sinValue, plan.count};
  // Ordinary rows end on the last column and row, median rows behind them.
  Engine().PlanTurned(columns, median ? width : width - 1, median ? height : height - 1, !median, &plan.begin,
                      &plan.end);
  return plan;
}

// ---- Samples of a row ----------------------------------------------------------------------------------------------

// lines[i][0] receives the sample of column plan.begin on plane planes[i].
void CInterp::SamplePlanes(const RowPlan& plan, const int* planes, int count, float* const* lines) {
  const int columns = plan.end - plan.begin;
  if (columns <= 0) return;
  const auto rowsOf = [&](int p) {
    return qmr::PlaneRows{rowTable.get() + planeRowOffset[static_cast<std::size_t>(p)], width, height, rowStride};
  };
  switch (plan.kind) {
    case RowPlan::kCopy:
      for (int i = 0; i < count; ++i) std::copy_n(rowsOf(planes[i]).rows[plan.row] + plan.column, columns, lines[i]);
      break;
    case RowPlan::kShift:
      for (int i = 0; i < count; ++i)
        Engine().Shifted(method, rowsOf(planes[i]), planes[i], plan.shifted, plan.y, lines[i]);
      break;
    case RowPlan::kTurn:
      for (int i = 0; i < count; i += kTogether) {
        const int n = std::min(kTogether, count - i);
        qmr::PlaneRows rows[kTogether];
        for (int k = 0; k < n; ++k) rows[k] = rowsOf(planes[i + k]);
        Engine().Turned(method, rows, n, plan.begin, plan.end, lines + i);
      }
      break;
  }
}

void CInterp::FillOutside(const RowPlan& plan, float* line) const {
  std::fill(line, line + plan.begin, outsideValue);
  std::fill(line + plan.end, line + plan.count, outsideValue);
}

void CInterp::WriteLine(const RowPlan& plan, float* line) {
  if (!line) return;
  if (plane < 0 || plane >= planeCount) {
    std::fill_n(line, plan.count, outsideValue);
    return;
  }
  FillOutside(plan, line);
  float* const inside = line + plan.begin;
  SamplePlanes(plan, &plane, 1, &inside);
}

void CInterp::WriteLines(const RowPlan& plan, float* const* lines) {
  const bool colour = IsColorSource();
  const bool all = plane == -1;
  const int columns = plan.end - plan.begin;
  // Interpolated rows convert in double by the image's own levels, copied rows in float by the prepared gains.
  const bool inFloat = plan.kind == RowPlan::kCopy;
  const auto scaleLine = [&](float* line, int p) {
    if (!to256) return;
    if (inFloat)
      qmr::ScaleLineFloat(line, columns, levelMinF[p], levelGainF[p]);
    else
      qmr::ScaleLineDouble(line, columns, image->GetLevelMin(p), image->GetLevelRange(p));
  };
  const int lineCount = all ? 3 : 1;
  for (int i = 0; i < lineCount; ++i) {
    if (!lines[i]) return;
    FillOutside(plan, lines[i]);
  }
  if (columns <= 0) return;

  constexpr int kPlanes[3] = {0, 1, 2};
  if (!colour) {
    float* const inside = lines[0] + plan.begin;
    SamplePlanes(plan, kPlanes, 1, &inside);
    scaleLine(inside, 0);
    for (int i = 1; i < lineCount; ++i) std::copy_n(inside, columns, lines[i] + plan.begin);
    return;
  }
  float* rgb[3];
  for (int p = 0; p < 3; ++p) rgb[p] = all ? lines[p] + plan.begin : Engine().Scratch(p, columns);
  SamplePlanes(plan, kPlanes, 3, rgb);
  if (all || inFloat) {
    for (int p = 0; p < 3; ++p) scaleLine(rgb[p], p);
  }
  if (all) return;
  float* const inside = lines[0] + plan.begin;
  if (to256 && !inFloat) {
    qmr::LineLevels levels;
    for (int p = 0; p < 3; ++p) {
      levels.min[p] = image->GetLevelMin(p);
      levels.range[p] = image->GetLevelRange(p);
    }
    qmr::Brightness256Line(rgb[0], rgb[1], rgb[2], columns, levels, inside);
  } else {
    qmr::BrightnessLine(rgb[0], rgb[1], rgb[2], columns, inside);
  }
}

// ---- Rows ----------------------------------------------------------------------------------------------------------

void CInterp::GetBLine(double y, float* line) {
  switch (shiftType) {
    case kShiftWhole:
      GetBLine_int(qmr::TruncateToInt(y), line);
      break;
    case kShiftFraction:
      GetBLine_float(y, line);
      break;
    case kRotation:
      GetBLine_rotate(y, line);
      break;
    default:
      break;
  }
}

void CInterp::GetBLine(double y, float* line0, float* line1, float* line2) {
  switch (shiftType) {
    case kShiftWhole:
      GetBLine_int(qmr::TruncateToInt(y), line0, line1, line2);
      break;
    case kShiftFraction:
      GetBLine_float(y, line0, line1, line2);
      break;
    case kRotation:
      GetBLine_rotate(y, line0, line1, line2);
      break;
    default:
      break;
  }
}

void CInterp::GetBLineMed(double y, double* values, int* valid) {
  switch (shiftType) {
    case kShiftWhole:
      GetBLineMed_int(qmr::TruncateToInt(y), values, valid);
      break;
    case kShiftFraction:
      GetBLineMed_float(y, values, valid);
      break;
    case kRotation:
      GetBLineMed_rotate(y, values, valid);
      break;
    default:
      break;
  }
}

void CInterp::GetBLine_int(int y, float* line) {
  WithMemoryException([&] { WriteLine(PlanInt(y, false), line); });
}
void CInterp::GetBLine_float(double y, float* line) {
  WithMemoryException([&] { WriteLine(PlanFloat(y, false), line); });
}
void CInterp::GetBLine_rotate(double y, float* line) {
  WithMemoryException([&] { WriteLine(PlanRotate(y, false), line); });
}

void CInterp::GetBLine_int(int y, float* line0, float* line1, float* line2) {
  float* const lines[3] = {line0, line1, line2};
  WithMemoryException([&] { WriteLines(PlanInt(y, false), lines); });
}
void CInterp::GetBLine_float(double y, float* line0, float* line1, float* line2) {
  float* const lines[3] = {line0, line1, line2};
  WithMemoryException([&] { WriteLines(PlanFloat(y, false), lines); });
}
void CInterp::GetBLine_rotate(double y, float* line0, float* line1, float* line2) {
  float* const lines[3] = {line0, line1, line2};
  WithMemoryException([&] { WriteLines(PlanRotate(y, false), lines); });
}

void CInterp::GetBLineMed_int(int y, double* values, int* valid) {
  WithMemoryException([&] { WriteMedian(PlanInt(y, true), values, valid); });
}
void CInterp::GetBLineMed_float(double y, double* values, int* valid) {
  WithMemoryException([&] { WriteMedian(PlanFloat(y, true), values, valid); });
}
void CInterp::GetBLineMed_rotate(double y, double* values, int* valid) {
  WithMemoryException([&] { WriteMedian(PlanRotate(y, true), values, valid); });
}

// ---- Median rows ---------------------------------------------------------------------------------------------------

CInterp::RowPlan CInterp::PlanMedian(double y) {
  RowPlan plan = {};
  switch (shiftType) {
    case kShiftWhole:
      plan = PlanInt(qmr::TruncateToInt(y), true);
      break;
    case kShiftFraction:
      plan = PlanFloat(y, true);
      break;
    case kRotation:
      plan = PlanRotate(y, true);
      break;
    default:
      break;
  }
  return plan;
}

// Planes first .. first + count - 1, at most kTogether, each from column plan.begin on. A source with fewer planes
// than the destination gives plane 0 for each.
void CInterp::SampleMedian(const RowPlan& plan, int first, int count, float* const* lines) {
  const int columns = plan.end - plan.begin;
  if (columns <= 0) return;
  if (image->IsColor() && planeCount >= plane) {
    const int planes[kTogether] = {first, first + 1, first + 2};
    SamplePlanes(plan, planes, count, lines);
    return;
  }
  constexpr int kFirstPlane = 0;
  SamplePlanes(plan, &kFirstPlane, 1, lines);
  for (int k = 1; k < count; ++k) std::copy_n(lines[0], columns, lines[k]);
}

void CInterp::WriteMedian(const RowPlan& plan, double* values, int* valid) {
  if (!values || !valid) return;
  const int columns = plan.end - plan.begin;
  const std::size_t stride = static_cast<std::size_t>(plan.count);
  float* lines[kTogether] = {};
  for (int k = 0; k < kTogether && columns > 0; ++k) lines[k] = Engine().Scratch(k, columns);
  for (int first = 0; first < plane; first += kTogether) {
    const int count = std::min(kTogether, plane - first);
    SampleMedian(plan, first, count, lines);
    for (int k = 0; k < count; ++k) {
      double* const v = values + static_cast<std::size_t>(first + k) * stride;
      int* const ok = valid + static_cast<std::size_t>(first + k) * stride;
      std::fill(v, v + plan.begin, static_cast<double>(outsideValue));
      qmr::WidenLine(lines[k], columns, v + plan.begin);
      std::fill(v + plan.end, v + plan.count, static_cast<double>(outsideValue));
      std::fill(ok, ok + plan.begin, 0);
      std::fill(ok + plan.begin, ok + plan.end, 1);
      std::fill(ok + plan.end, ok + plan.count, 0);
    }
  }
}
