// Removal of coloured haloes.
#include <algorithm>
#include <cstddef>

#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/kernels/colour_rows.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace {

constexpr int kMessageFalseColour = 6193;

qmr::FalseColour MakeFalseColour(int red, int green, int blue, double tolerance, double strength) {
  // Without red the ratios are infinite or not a number, and so are the bounds: no pixel lies between them.
  const double a = static_cast<double>(green) / red;
  const double b = static_cast<double>(blue) / red;
  // The first of equal ones is the largest.
  const int excess = red >= green && red >= blue ? 0 : green >= blue ? 1 : 2;
  return {a - a * tolerance, a + a * tolerance, b - b * tolerance, b + b * tolerance, excess, strength};
}

}  // namespace

void CImgFilterMisc::FalseColorCut(int ratioR, int ratioG, int ratioB, double tolerance, double strength,
                                   CVynImage* source, CRect* pRect, int bProgress) {
  if (!source || !qmr::HasRgb(*this)) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageFalseColour, (bottom - top) * Planes);
  const qmr::FalseColour colour = MakeFalseColour(ratioR, ratioG, ratioB, tolerance, strength);
  const auto row = [&](int y) {
    const float* from[3];
    float* to[3];
    std::size_t width = 0;
    for (int p = 0; p < 3; ++p) {
      const auto [in, out] = qmr::RowPair(*source, *this, y, p, left, right);
      from[p] = in.data();
      to[p] = out.data();
      width = p == 0 ? in.size() : std::min(width, in.size());
    }
    qmr::FalseColourRow(from, to, width, colour);
    for (int p = 0; p < Planes; ++p) ShowProgress(1);
  };
  qmr::ForRows(top, bottom, row);
  ShowProgressEnd(nullptr);
}
