// Smoothing of the faint background.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/kernels/blend_rows.h"
#include "qmrimg/filters/plane_values.h"
#include "qmrimg/filters/separable_scan.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageBackground = 6123;

}  // namespace

void CImgFilterMisc::BkgSmooth(double* level, double* buffer, int kernelType, double* radius, double weight,
                               CVynImage* source, CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageBackground, (bottom - top) * Planes);
  // The report stays open, on purpose: hosts tell an unknown kernel by it.
  if (kernelType != 0 && kernelType != 1) return;
  qmr::Snapshot before(*this);
  for (int p = 0; p < std::min({Planes, source->GetPlanes(), qmr::kEnginePlanes}); ++p) {
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
    const CFilterProc& engine = *CurFilterProc;
    // The source of the call that filled the engine.
    const CVynImage& image = before.Of(*engine.GetSource());
    const qmr::BackgroundLevels levels{static_cast<float>(level[p]),
                                       static_cast<float>(buffer[p] / 255.0 * GetLevelRange(p))};
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      qmr::SeparableScan scan(image, engine.GetPlane(), engine.GetKernel(), left, right, last);
      for (int y = first; y < last; ++y) {
        const std::span<const float> smooth = scan.Row(y);
        const auto [from, to] = qmr::RowPair(*source, *this, y, p, left, right);
        const std::size_t width = std::min(smooth.size(), to.size());
        qmr::BackgroundRow(from.first(width), smooth.first(width), to.first(width), levels);
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}
