// What one row of CInterp covers.
#pragma once

#include "qmrimg/geometry/interp.h"
#include "qmrimg/geometry/row_engine.h"

struct CInterp::RowPlan {
  enum Kind { kCopy, kShift, kTurn };
  Kind kind;
  int count;  // columns of the row
  int begin;  // columns begin .. end - 1 come from the source
  int end;
  int column;  // kCopy: the source column of `begin`
  int row;     // kCopy: the source row
  qmr::ShiftedColumns shifted;
  double y;
};
