#include "qmrimg/stacking/evaluate_focus.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/separable_scan.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/array.h"
#include "qmrimg/stacking/kernels/measure_rows.h"
#include "qmrimg/store/registry.h"

namespace {

constexpr int kMessageFocus = 6182;
constexpr int kEnginePlanes = 3;
constexpr int kNarrow = 0, kWide = 1;

struct Range {
  int first;
  int last;
};

// What a margin on both sides leaves of first..last - 1, and of the image's size.
Range Inside(std::int64_t first, std::int64_t last, int size, std::int64_t margin) {
  const std::int64_t from = std::max({first + margin, margin, std::int64_t{0}});
  const std::int64_t to = std::min({last - margin, size - margin, std::int64_t{size}});
  return from < to ? Range{static_cast<int>(from), static_cast<int>(to)} : Range{0, 0};
}

}  // namespace

CImgEvaluateFocus::CImgEvaluateFocus() = default;
CImgEvaluateFocus::CImgEvaluateFocus(const CImgEvaluateFocus& src) = default;
CImgEvaluateFocus::~CImgEvaluateFocus() = default;
CImgEvaluateFocus& CImgEvaluateFocus::operator=(const CImgEvaluateFocus& src) = default;

double CImgEvaluateFocus::Do(int bProgress) {
  return Do(nullptr, bProgress);
}

double CImgEvaluateFocus::Do(CRect* pRect, int bProgress) {
  int narrow, wide;
  CRegistry::Read(L"Eval", L"Min", 1, &narrow, 1);
  CRegistry::Read(L"Eval", L"Max", 10, &wide, 1);

  const Range columns = Inside(pRect ? pRect->left : 0, pRect ? pRect->right : Width, Width, wide);
  const Range rows = Inside(pRect ? pRect->top : 0, pRect ? pRect->bottom : Height, Height, wide);
  // Without an area there are no engines either: that of a very great `Max` would not fit into memory.
  const int planes = columns.last > 0 && rows.last > 0 ? std::min(Planes, kEnginePlanes) : 0;
  for (int p = 0; p < planes; ++p) {
    CFilterMatrix matrix;
    matrix.SetGaussianSigma(narrow);
    MakeFilterProcEx(kNarrow, this, &matrix, p, 1);
    matrix.SetGaussianSigma(wide);
    MakeFilterProcEx(kWide, this, &matrix, p, 1);
  }
  const std::int64_t units = static_cast<std::int64_t>(Planes) * Height;
  ShowProgressInit(bProgress, kMessageFocus,
                   static_cast<int>(std::min<std::int64_t>(units, std::numeric_limits<int>::max())));

  double sum = 0.0, count = 0.0;
  CArray<double> sums, counts;
  sums.SetSize(rows.last - rows.first);
  counts.SetSize(rows.last - rows.first);
  for (int p = 0; p < planes; ++p) {
    SetFilterProcPlnEx(kNarrow, p);
    SetFilterProcPlnEx(kWide, p);
    const auto scan = [&](int group, int last) {
      const CFilterProc& engine = *FilterProcEx[group].Get(p);
      return qmr::SeparableScan(*engine.GetSource(), engine.GetPlane(), engine.GetKernel(), columns.first, columns.last,
                                last);
    };
    qmr::ForRowRanges(rows.first, rows.last, [&](int first, int last) {
      qmr::SeparableScan narrowRows = scan(kNarrow, last), wideRows = scan(kWide, last);
      for (int y = first; y < last; ++y) {
        const std::span<const float> sharp = narrowRows.Row(y), soft = wideRows.Row(y);
        const std::size_t width = std::min(sharp.size(), soft.size());
        const int row = y - rows.first;
        sums[row] = qmr::SumDifferences(sharp.first(width), soft.first(width));
        counts[row] = static_cast<double>(width);
        ShowProgress(1);
      }
    });
    for (int row = 0; row < sums.GetSize(); ++row) {
      sum += sums[row];
      count += counts[row];
    }
  }
  ShowProgressEnd(nullptr);
  return count > 0.0 ? sum / count : 0.0;
}
