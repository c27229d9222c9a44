// A selection on an image: one span of columns a row.
#pragma once

#include <memory>

#include "qmrimg/platform/export.h"

// Rows are 0..height of SetHeight; the row at `height` itself is room to spare and starts as the span of column 0.
// Without lines, before SetHeight and after SetAllSelection, nothing can be set and every answer is 0.
class QMR_API CImageSelection {
 public:
  CImageSelection();
  // Copies carry the rows below the height. Like all members that need memory they may raise the memory exception.
  CImageSelection(const CImageSelection& src);
  CImageSelection& operator=(const CImageSelection& src);
  ~CImageSelection();

  // New lines with all of each row selected, though IsNoSelection stays true until a row is set. 1, or 0 with nothing
  // changed for a negative height.
  int SetHeight(int height);
  // Both free the lines: on purpose one and the same, hosts take either as "no restriction".
  void SetAllSelection();
  void SetNoSelection();
  int IsNoSelection() const { return Selected == 0; }

  // Selects all of a row (`all` non-zero) or none of it. These two give 0 for a row outside.
  int SetAllLine(int row, int all);
  // Selects columns start..end, both inclusive. A start of -1 means all of the row, -2 none.
  int SetInOut(int row, int start, int end);
  // Stores a flag for the host; the readers don't heed it.
  void SetReverse(int reverse) { Reverse = reverse; }

  int GetBool(int row, int x) const;
  float GetAlpha(int row, int x) const;

 protected:
  struct Line {
    int start;  // kAll, kNone or the first selected column
    int end;
  };
  static constexpr int kAll = -1;
  static constexpr int kNone = -2;

  bool HasRow(int row) const { return Lines && row >= 0 && row <= SelHeight; }

  std::unique_ptr<Line[]> Lines;
  int SelHeight = 0;
  int Selected = 0;
  int Reverse = 0;
};
