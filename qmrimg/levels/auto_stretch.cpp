#include "qmrimg/levels/auto_stretch.h"

#include <algorithm>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/kernels/sample_rows.h"

CImgAutoStretch::CImgAutoStretch() = default;
CImgAutoStretch::~CImgAutoStretch() = default;

void CImgAutoStretch::DoStretch(CVynImage* source, double* gain, double* offsetIn, double* weight, double* offsetOut,
                                tagRECT* rect) {
  if (!source || !rect) return;
  const CRect area(*rect);
  int left, top, right, bottom;
  NormalizeRect(&area, left, top, right, bottom);
  const double largest = std::max({weight[0], weight[1], weight[2]});
  for (int p = 0; p < std::min(Planes, source->GetPlanes()); ++p) {
    const qmr::Stretch stretch{largest / weight[p] * gain[p], offsetIn[p], static_cast<float>(offsetOut[p])};
    qmr::ForRows(top, bottom, [&](int y) {
      const auto [from, to] = qmr::RowPair(*source, *this, y, p, left, right);
      qmr::StretchRow(from, to, stretch);
    });
  }
}
