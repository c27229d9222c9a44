// Names of the ways in which a host aligns frames.
#pragma once

#include "qmrimg/platform/export.h"
#include "qmrimg/platform/text.h"

//   0 RefPoint   by reference points
//   1 Auto       by phase-only correlation
//   2 Centroid   by centroids, shifts only
//   3 Matching   by a template, shifts only (see CImgMatching)
class QMR_API CAlignment {
 public:
  // The name to show and the English name; empty for a number that is no method.
  static CString GetString(int method);
  static CString GetEngString(int method);
};
