// Cancelling of guiding errors.
#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "qmrimg/filters/block_scan.h"
#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/kernels/blend_rows.h"
#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageGuideError = 6192;

}  // namespace

void CImgFilterMisc::GuideErrorCanceller(double length, double angle, double weight, double mix, CVynImage* source,
                                         CRect* pRect, int bProgress) {
  if (!source) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageGuideError, (bottom - top) * Planes);
  CFilterMatrix kernel;
  kernel.SetLine(qmr::TruncateToInt(std::max(1.0, std::ceil(length))), length, angle, weight);
  qmr::Snapshot before(*this);
  const CVynImage& image = before.Of(*source);
  for (int p = 0; p < std::min(Planes, source->GetPlanes()); ++p) {
    qmr::ForRowRanges(top, bottom, [&](int first, int last) {
      qmr::BlockScan scan(image, p, kernel.GetRadius(), left, right);
      std::vector<float> filtered;
      for (int y = first; y < last; ++y) {
        scan.MoveTo(y);
        const std::span<const float> from = scan.Centre();
        filtered.resize(from.size());
        scan.Convolve(kernel, filtered);
        const std::span<float> to = qmr::WriteRow(*this, y, p, left, right);
        const std::size_t width = std::min(from.size(), to.size());
        qmr::MixRow(from.first(width), std::span(filtered).first(width), to.first(width), mix);
        ShowProgress(1);
      }
    });
  }
  ShowProgressEnd(nullptr);
}
