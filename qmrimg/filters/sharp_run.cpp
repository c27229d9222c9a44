#include "qmrimg/filters/sharp_run.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "qmrimg/filters/block_scan.h"
#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_pass.h"
#include "qmrimg/filters/kernels/sharpen_rows.h"
#include "qmrimg/filters/selection.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"

namespace qmr {
namespace {

constexpr int kMessageSharp = 6121;
constexpr int kMessageUnSharp = 6122;

// Reaches the engine that an image has selected.
struct EngineOf : CVynImage {
  static const CFilterProc& Selected(const CVynImage& image) { return *(image.*(&EngineOf::CurFilterProc)); }
};

}  // namespace

void RunSharpen(CVynImage& target, bool edges, const double* radius, const double* weight, const SharpenLimits* limits,
                CVynImage* source, const CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  target.NormalizeRect(pRect, left, top, right, bottom);
  const std::int64_t units = (static_cast<std::int64_t>(bottom) - top) * target.GetPlanes();
  target.ShowProgressInit(bProgress, kMessageSharp,
                          static_cast<int>(std::min<std::int64_t>(units, std::numeric_limits<int>::max())));
  Snapshot before(target);
  const CVynImage& image = before.Of(*source);
  for (int p = 0; p < std::min(target.GetPlanes(), source->GetPlanes()); ++p) {
    const int windowRadius = TruncateToInt(std::max(1.0, radius[p]));
    CFilterMatrix sharpen, laplacian;
    sharpen.SetSharpen(edges ? radius[p] : std::max(1.0, radius[p]), weight[p]);
    if (edges) laplacian.SetLaplacian(windowRadius, radius[p]);
    const double range = target.GetLevelRange(p);
    const SharpenSelection selection(*source, p, limits ? limits[p] : SharpenLimits{});
    ForRowRanges(top, bottom, [&](int first, int last) {
      BlockScan scan(image, p, windowRadius, left, right);
      std::vector<float> sharpened(ColumnsOf(left, right)), response(edges ? sharpened.size() : 0);
      for (int y = first; y < last; ++y) {
        const auto [from, to] = RowPair(*source, target, y, p, left, right);
        if (scan.MoveTo(y)) {
          const std::span<float> row = limits ? std::span(sharpened).first(to.size()) : to;
          if (edges) {
            const std::span<float> edge = std::span(response).first(to.size());
            const std::span<float> strong = std::span(sharpened).first(to.size());
            scan.Convolve(laplacian, edge);
            scan.Convolve(sharpen, strong);
            EdgeBlendRow(edge, range, from, strong, row);
          } else {
            scan.Convolve(sharpen, row);
          }
          if (limits) LimitThenBlendRow(selection, from, row, to);
        }
        target.ShowProgress(1);
      }
    });
  }
  target.ShowProgressEnd(nullptr);
}

void RunUnSharpMask(CVynImage& target, const double* sigma, const double* gain, const double* threshold,
                    const SharpenLimits* limits, CVynImage* source, const CRect* pRect, int bProgress) {
  if (!source) return;
  FilterPass pass(target, *source, pRect, bProgress, kMessageUnSharp);
  for (int p = 0; p < pass.EnginePlanes(); ++p) {
    CFilterMatrix matrix;
    matrix.SetGaussianSigma(sigma[p]);
    target.MakeFilterProc(source, &matrix, p, 1);
    target.SetFilterProcPln(p);
    const SharpenSelection selection(*source, p, limits ? limits[p] : SharpenLimits{});
    pass.Separable(p, EngineOf::Selected(target), [&](auto from, auto blurred, auto to) {
      if (limits)
        UnSharpSelectedRow(selection, from, blurred, gain[p], to);
      else
        UnSharpRow(from, blurred, gain[p], threshold[p], to);
    });
  }
  pass.End();
}

}  // namespace qmr
