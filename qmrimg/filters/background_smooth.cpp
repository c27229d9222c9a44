// Smoothing of the faint background.
#include <algorithm>
#include <cstdint>
#include <limits>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/filter_pass.h"
#include "qmrimg/filters/kernels/blend_rows.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageBackground = 6123;

}  // namespace

void CImgFilterMisc::BkgSmooth(double* level, double* buffer, int kernelType, double* radius, double weight,
                               CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  qmr::FilterPass pass(*this, *source, pRect, bProgress, kMessageBackground);
  // The report stays open, on purpose: hosts tell an unknown kernel by it.
  if (kernelType != 0 && kernelType != 1) return;
  for (int p = 0; p < pass.EnginePlanes(); ++p) {
    CFilterMatrix matrix;
    if (kernelType == 1) {
      const std::int64_t disc = 2 * std::int64_t{qmr::TruncateToInt(radius[p])};
      matrix.SetWeightedDisc(static_cast<int>(std::clamp<std::int64_t>(disc, 1, std::numeric_limits<int>::max())),
                             radius[p], weight);
    }
    // Also in the place of the disc, on purpose: the engine is separable, which a disc is not, and the results of both
    // kinds are the same.
    matrix.SetGaussianSigma(radius[p]);
    MakeFilterProc(source, &matrix, p, 1);
    SetFilterProcPln(p);
    const qmr::BackgroundLevels levels{static_cast<float>(level[p]),
                                       static_cast<float>(buffer[p] / 255.0 * GetLevelRange(p))};
    pass.Separable(p, *CurFilterProc,
                   [&](auto from, auto smooth, auto to) { qmr::BackgroundRow(from, smooth, to, levels); });
  }
  pass.End();
}
