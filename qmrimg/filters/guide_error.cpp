// Cancelling of guiding errors.
#include <algorithm>
#include <cmath>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/filter_pass.h"
#include "qmrimg/filters/kernels/blend_rows.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageGuideError = 6192;

}  // namespace

void CImgFilterMisc::GuideErrorCanceller(double length, double angle, double weight, double mix, CVynImage* source,
                                         CRect* pRect, int bProgress) {
  if (!source) return;
  qmr::FilterPass pass(*this, *source, pRect, bProgress, kMessageGuideError);
  CFilterMatrix kernel;
  kernel.SetLine(qmr::TruncateToInt(std::max(1.0, std::ceil(length))), length, angle, weight);
  for (int p = 0; p < pass.Planes(); ++p)
    pass.Convolved(p, kernel, [&](auto from, auto filtered, auto to) { qmr::MixRow(from, filtered, to, mix); });
  pass.End();
}
