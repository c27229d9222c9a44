#include "qmrimg/restoration/windowing.h"

#include <cstddef>
#include <cstdlib>
#include <vector>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/restoration/kernels/wiener_rows.h"

namespace {

constexpr int kMessageWindow = 6191;

}  // namespace

CImgWindowing::CImgWindowing() = default;
CImgWindowing::CImgWindowing(const CImgWindowing& other) = default;
CImgWindowing::~CImgWindowing() = default;
CImgWindowing& CImgWindowing::operator=(const CImgWindowing& other) = default;

int CImgWindowing::Do(int kind, double radius, CVynImage* src, int bProgress) {
  if (!src) return 0;
  const int width = src->GetWidth(), height = src->GetHeight(), centreX = width / 2, centreY = height / 2;
  ShowProgressInit(bProgress, kMessageWindow, qmr::TruncateToInt(static_cast<double>(Planes) * height));
  qmr::ForRowRanges(0, height, [&](int first, int last) {
    // Distances to both sides of the centre, 0..width / 2.
    std::vector<double> weights(static_cast<std::size_t>(centreX) + 1, 1.0);
    for (int y = first; y < last; ++y) {
      if (kind == 0) qmr::CosineWeights(y - centreY, radius, centreX + 1, weights.data());
      for (int p = 0; p < Planes; ++p) {
        const auto [from, to] = qmr::RowPair(*src, *this, y, p, 0, width);
        qmr::WeighRow(from, weights.data(), centreX, to);
        ShowProgress(1);
      }
    }
  });
  ShowProgressEnd(nullptr);
  return 1;
}
