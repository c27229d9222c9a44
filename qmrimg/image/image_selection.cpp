#include "qmrimg/image/image_selection.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

#include "qmrimg/platform/exception.h"

namespace {

// Zeroed, so that the spare row answers the same in every run.
template <class Line>
std::unique_ptr<Line[]> NewLines(int height) {
  try {
    return std::make_unique<Line[]>(static_cast<std::size_t>(height) + 1);
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

}  // namespace

CImageSelection::CImageSelection() = default;
CImageSelection::~CImageSelection() = default;

CImageSelection::CImageSelection(const CImageSelection& src) {
  *this = src;
}

CImageSelection& CImageSelection::operator=(const CImageSelection& src) {
  if (&src == this) return *this;
  std::unique_ptr<Line[]> lines;
  if (src.Lines) {
    lines = NewLines<Line>(src.SelHeight);
    std::copy_n(src.Lines.get(), src.SelHeight, lines.get());
  }
  Lines = std::move(lines);
  SelHeight = src.SelHeight;
  Selected = src.Selected;
  Reverse = src.Reverse;
  return *this;
}

int CImageSelection::SetHeight(int height) {
  if (height < 0) return 0;
  std::unique_ptr<Line[]> lines = NewLines<Line>(height);
  for (int row = 0; row < height; ++row) lines[static_cast<std::size_t>(row)].start = kAll;
  Lines = std::move(lines);
  SelHeight = height;
  Selected = 0;
  return 1;
}

void CImageSelection::SetAllSelection() {
  Lines.reset();
  Selected = 0;
}

void CImageSelection::SetNoSelection() {
  SetAllSelection();
}

int CImageSelection::SetAllLine(int row, int all) {
  if (!HasRow(row)) return 0;
  Lines[static_cast<std::size_t>(row)].start = all ? kAll : kNone;
  Selected = 1;
  return 1;
}

int CImageSelection::SetInOut(int row, int start, int end) {
  if (!HasRow(row)) return 0;
  Lines[static_cast<std::size_t>(row)] = {start, end};
  Selected = 1;
  return 1;
}

int CImageSelection::GetBool(int row, int x) const {
  if (!HasRow(row)) return 0;
  const Line& line = Lines[static_cast<std::size_t>(row)];
  if (line.start == kNone) return 0;
  return line.start == kAll || (x >= line.start && x <= line.end);
}

float CImageSelection::GetAlpha(int row, int x) const {
  return GetBool(row, x) ? 1.0f : 0.0f;
}
