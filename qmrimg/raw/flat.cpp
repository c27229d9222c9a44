#include "qmrimg/raw/flat.h"

#include <cmath>
#include <cstdint>

#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/raw/kernels/illumination_rows.h"

namespace {

constexpr int kMessageFlatten = 6139;

// `model(p)` gives the model of a plane, `lowest(p)` the reference level of the offset.
template <class ModelOf, class LowestOf>
void Flatten(CVynImage& image, const CVynImage* src, int mode, const CRect* pRect, int bProgress, ModelOf modelOf,
             LowestOf lowestOf) {
  if (!src) return;
  using Kind = qmr::IlluminationMode::Kind;
  int left, top, right, bottom;
  image.NormalizeRect(pRect, left, top, right, bottom);
  image.ShowProgressInit(bProgress, kMessageFlatten, (bottom - top) * image.GetPlanes());
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const auto model = modelOf(p);
    qmr::IlluminationMode how{Kind::kClear, 0.0};
    if (mode == 0) how.kind = Kind::kSubtract;
    if (mode == 1) {
      const double lowest = lowestOf(p);
      const double smallest = src->GetMinPixel(p);
      how = {Kind::kDivide, -(lowest < smallest ? lowest : smallest)};
      if (how.offset == 0.0) how.offset = 1.0;
    }
    qmr::ForRows(
        top, bottom,
        [&](int y) {
          const auto [from, to] = qmr::RowPair(*src, image, y, p, left, right);
          qmr::IlluminationRow(from, to, left, y, how, model);
        },
        &image);
  }
  image.ShowProgressEnd(nullptr);
}

qmr::LineIllumination LineThrough(const CPoint& point1, const CPoint& point2, double slope, double base) {
  qmr::LineIllumination line{slope, base, 0.0, 0.0, 0.0};
  const std::int64_t dx = std::int64_t{point2.x} - point1.x;
  const std::int64_t dy = std::int64_t{point2.y} - point1.y;
  if (dx == 0) {
    line.dirY = dy > 0 ? 1.0 : -1.0;
  } else {
    const double k = static_cast<double>(dy) / static_cast<double>(dx);
    const double sign = dx < 0 ? -1.0 : 1.0;
    line.dirX = sign * std::sqrt(1.0 / (k * k + 1.0));
    line.dirY = line.dirX * k;
  }
  // One plain number from the y coordinates alone, in 16 bits, on purpose: `base` is defined by it.
  line.mid = static_cast<std::int16_t>((std::int64_t{point1.y} + point2.y) / 2);
  return line;
}

// The value at the vertex; 0 without a curve.
double VertexValue(double curve, double gradX, double gradY, double constant) {
  return curve != 0.0 ? constant - (gradX * gradX + gradY * gradY) * 0.25 / curve : 0.0;
}

}  // namespace

CImgFlat::CImgFlat() = default;
CImgFlat::CImgFlat(const CImgFlat& src) : CVynImage(src) {}
CImgFlat::~CImgFlat() = default;

CImgFlat& CImgFlat::operator=(const CImgFlat& src) {
  CVynImage::operator=(src);
  return *this;
}

void CImgFlat::DoFlat(CVynImage* src, CPoint* point1, CPoint* point2, double* slope, double* base, double* lowest,
                      int mode, CRect* pRect, int bProgress) {
  Flatten(
      *this, src, mode, pRect, bProgress, [&](int p) { return LineThrough(point1[p], point2[p], slope[p], base[p]); },
      [&](int p) { return lowest[p]; });
}

void CImgFlat::DoFlatPoint(CVynImage* src, double* gradX, double* gradY, double* constant, double* lowest, int mode,
                           CRect* pRect, int bProgress) {
  Flatten(
      *this, src, mode, pRect, bProgress,
      [&](int p) {
        return qmr::PlaneIllumination{gradX[p], gradY[p], constant[p]};
      },
      [&](int p) { return lowest[p]; });
}

void CImgFlat::DoParabolic(CVynImage* src, CPoint* centre, double* curve, double* peak, double* lowest, int mode,
                           CRect* pRect, int bProgress) {
  Flatten(
      *this, src, mode, pRect, bProgress,
      [&](int p) {
        return qmr::RadialIllumination{curve[p], peak[p], centre[p].x, centre[p].y};
      },
      [&](int p) { return curve[p] >= 0.0 ? peak[p] : lowest[p]; });
}

void CImgFlat::DoParabolicPoint(CVynImage* src, double* curve, double* gradX, double* gradY, double* constant,
                                double* lowest, int mode, CRect* pRect, int bProgress) {
  const auto vertex = [&](int p) { return VertexValue(curve[p], gradX[p], gradY[p], constant[p]); };
  Flatten(
      *this, src, mode, pRect, bProgress,
      [&](int p) {
        return qmr::ParaboloidIllumination{curve[p], gradX[p], gradY[p], constant[p], vertex(p)};
      },
      [&](int p) { return curve[p] >= 0.0 ? vertex(p) : lowest[p]; });
}
