#include "qmrimg/stacking/median_composit.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "qmrimg/geometry/frame_sampler.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/platform/message_box.h"
#include "qmrimg/stacking/kernels/stack_rows.h"

namespace {

constexpr int kLineSlots = 10;

int MessageOf(int mode) {
  constexpr int kMessages[] = {6141, 6186, 6188, 6189};
  return mode >= 1 && mode <= 3 ? kMessages[mode] : kMessages[0];
}

std::int64_t StripCount(const CVynImage& image, int yStart, int yEnd) {
  return static_cast<std::int64_t>(std::max(yEnd - yStart + 1, 0)) * image.GetWidth() * image.GetPlanes();
}

}  // namespace

// ---- Lines ---------------------------------------------------------------------------------------------------------

CLineData::CLineData(int count) : values(nullptr), valid(nullptr) {
  if (count < 0) AfxThrowMemoryException();
  values = new (std::nothrow) double[static_cast<std::size_t>(count)]();
  valid = new (std::nothrow) int[static_cast<std::size_t>(count)]();
  if (values && valid) return;
  delete[] values;
  delete[] valid;
  AfxThrowMemoryException();
}

CLineData::~CLineData() {
  delete[] values;
  delete[] valid;
}

// ---- Life ----------------------------------------------------------------------------------------------------------

CImgMedianComposit::CImgMedianComposit(CVynImage* dst, int mode) : destination(dst), messageId(MessageOf(mode)) {
  lines.SetSize(kLineSlots);
  if (destination) destination->ShowProgressInit(messageId);
}

CImgMedianComposit::~CImgMedianComposit() {
  if (destination) destination->ShowProgressEnd(nullptr);
  for (int i = 0; i < lineCount; ++i) delete lines[i];
}

void CImgMedianComposit::DropLines() {
  for (int i = 0; i < lineCount; ++i) delete lines[i];
  lines.RemoveAll();
  lines.SetSize(kLineSlots);
  lineCount = 0;
}

void CImgMedianComposit::AddNormalizeParam(double* offset, double* scale) {
  if (!offset || !scale) return;
  SNormalizeItem item;
  std::copy_n(offset, 3, item.offset);
  std::copy_n(scale, 3, item.scale);
  normalizeItems.Add(item);
}

void CImgMedianComposit::SetRefNormalizeParam(double* offset, double* scale) {
  if (!offset || !scale) return;
  std::copy_n(offset, 3, refOffset);
  std::copy_n(scale, 3, refScale);
}

// ---- Store ---------------------------------------------------------------------------------------------------------

// Cuts a strip to the destination; false when there is none, or other lines are in store, be it that the destination
// was given another shape meanwhile.
bool CImgMedianComposit::CutStrip(int* yStart, int* yEnd) const {
  if (!destination || destination->GetBitsPixel() != -32) return false;
  *yStart = std::max(*yStart, 0);
  *yEnd = std::min(*yEnd, destination->GetHeight() - 1);
  if (*yEnd < *yStart) {
    *yStart = 0;
    *yEnd = -1;
  }
  return lineCount == 0 || (*yStart == stripStart && *yEnd == stripEnd && destination->GetWidth() == stripWidth &&
                            destination->GetPlanes() == stripPlanes);
}

int CImgMedianComposit::StoreFailed(std::int64_t count) {
  CString text;
  text.Format(L"Cannot create LineData array (%d).",
              static_cast<int>(std::min<std::int64_t>(count, std::numeric_limits<int>::max())));
  AfxMessageBox(text);
  return 0;
}

int CImgMedianComposit::Store(CVynImage* frame, int yStart, int yEnd, double shiftX, double shiftY, double angle,
                              int useImageCenter, int addOffset, float* const offsets, int method) {
  if (!frame || !CutStrip(&yStart, &yEnd)) return 0;
  const int width = destination->GetWidth();
  const int planes = destination->GetPlanes();
  const std::int64_t count = StripCount(*destination, yStart, yEnd);
  try {
    if (lineCount == lines.GetSize()) lines.SetSize(lineCount + kLineSlots);
    if (count > std::numeric_limits<int>::max()) AfxThrowMemoryException();
    auto line = std::make_unique<CLineData>(static_cast<int>(count));
    qmr::FrameSampler sampler(method, frame, {shiftX, shiftY, angle, useImageCenter}, width, planes);
    const std::size_t step = static_cast<std::size_t>(width) * static_cast<std::size_t>(planes);
    double* values = line->values;
    int* valid = line->valid;
    for (int y = yStart; y <= yEnd; ++y, values += step, valid += step) sampler.Row(y, values, valid);
    if (addOffset && offsets) {
      int j = 0;
      for (std::int64_t i = 0; i < count; ++i) {
        line->values[i] += offsets[j];
        if (++j == planes) j = 0;
      }
    }
    lines[lineCount] = line.release();
  } catch (CMemoryException* e) {
    e->Delete();
    return StoreFailed(count);
  } catch (const std::bad_alloc&) {
    return StoreFailed(count);
  }
  stripStart = yStart;
  stripEnd = yEnd;
  stripWidth = width;
  stripPlanes = planes;
  ++lineCount;
  return 1;
}

// ---- Calculations --------------------------------------------------------------------------------------------------

void CImgMedianComposit::CalcStrip(const qmr::StackRule& rule, bool normalized, int yStart, int yEnd) {
  if (!CutStrip(&yStart, &yEnd)) return;
  try {
    CalcRows(rule, normalized, yStart, yEnd);
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
  DropLines();
  destination->ShowProgressInit(messageId);
  const int height = destination->GetHeight();
  if (height > 0)
    destination->ShowProgress(static_cast<int>(static_cast<std::int64_t>(std::max(yEnd, 0)) * 100 / height));
}

void CImgMedianComposit::CalcRows(const qmr::StackRule& rule, bool normalized, int yStart, int yEnd) {
  const int width = destination->GetWidth();
  const int planes = destination->GetPlanes();
  const std::size_t frames = static_cast<std::size_t>(lineCount);
  qmr::StackPlan plan(rule, lineCount);
  std::vector<const double*> values(frames);
  std::vector<const int*> valid(frames);
  std::vector<qmr::StackLevels> levels(normalized ? frames * static_cast<std::size_t>(planes) : 0);
  for (int i = 0; i < lineCount; ++i) {
    const std::size_t frame = static_cast<std::size_t>(i);
    values[frame] = lines[i]->values;
    valid[frame] = lines[i]->valid;
    if (!normalized) continue;
    const SNormalizeItem& item = normalizeItems[i];
    for (int p = 0; p < planes; ++p) {
      const int q = std::min(p, 2);
      levels[static_cast<std::size_t>(p) * frames + frame] = {item.offset[q], refScale[q] / item.scale[q],
                                                              refOffset[q]};
    }
  }
  for (int y = yStart; y <= yEnd; ++y) {
    for (int p = 0; p < planes; ++p) {
      const std::span<float> row = qmr::WriteRow(*destination, y, p, 0, width);
      const qmr::StackLevels* const own = normalized ? levels.data() + static_cast<std::size_t>(p) * frames : nullptr;
      qmr::StackRow(plan, values.data(), valid.data(), own, static_cast<int>(row.size()), row.data());
      for (const double*& v : values) v += width;
      for (const int*& v : valid) v += width;
    }
  }
}

void CImgMedianComposit::Calc(int yStart, int yEnd) {
  CalcStrip({}, false, yStart, yEnd);
}

void CImgMedianComposit::Calc(double kappa, int yStart, int yEnd, int dropRejected) {
  CalcStrip({qmr::StackMethod::kClippedMean, kappa, dropRejected != 0, false}, false, yStart, yEnd);
}

void CImgMedianComposit::CalcMax(int yStart, int yEnd) {
  CalcStrip({qmr::StackMethod::kMaximum, 0.0, false, false}, false, yStart, yEnd);
}

void CImgMedianComposit::CalcMin(int yStart, int yEnd) {
  CalcStrip({qmr::StackMethod::kMinimum, 0.0, false, false}, false, yStart, yEnd);
}

void CImgMedianComposit::NewCalc(int yStart, int yEnd) {
  CalcStrip({}, true, yStart, yEnd);
}

void CImgMedianComposit::NewCalc(double kappa, int yStart, int yEnd) {
  CalcStrip({qmr::StackMethod::kClippedMean, kappa, false, true}, true, yStart, yEnd);
}
