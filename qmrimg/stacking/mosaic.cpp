#include "qmrimg/stacking/mosaic.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

#include "qmrimg/filters/snapshot.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/row_table.h"
#include "qmrimg/stacking/kernels/mosaic_rows.h"

namespace {

constexpr int kMessageMosaic = 6135;
constexpr int kColours = qmr::kMostMosaicPlanes;

qmr::MosaicOverlap OverlapOf(int mode) {
  constexpr qmr::MosaicOverlap kModes[] = {qmr::MosaicOverlap::kAddition, qmr::MosaicOverlap::kAdditionButMask,
                                           qmr::MosaicOverlap::kBrighter, qmr::MosaicOverlap::kDarker};
  return mode >= 0 && mode <= 3 ? kModes[mode] : qmr::MosaicOverlap::kBase;
}

struct Levels {
  qmr::RowLevels planes[kColours];

  explicit Levels(const CVynImage& image) {
    for (int p = 0; p < kColours; ++p) planes[p] = {image.GetLevelMin(p), image.GetLevelRange(p)};
  }
};

qmr::MosaicMask MaskOf(const CVynImage& canvas, const float* colour, bool to256) {
  qmr::MosaicMask mask = {{}, to256 ? 1.0 : canvas.GetLevelRange(0) * 0.00390625};
  const int planes = qmr::HasRgb(canvas) ? kColours : 1;
  for (int p = 0; p < planes; ++p) {
    const float raw = colour ? colour[p] : 0.0f;
    mask.colour[p] = to256 ? canvas.To256(raw, p) : raw;
  }
  return mask;
}

bool HasColours(const CVynImage& image, const qmr::RowTable& rows) {
  return qmr::HasRgb(image) && rows.Planes() >= kColours;
}

// What one call does to each row.
struct Join {
  const qmr::MosaicImage& base;
  const qmr::MosaicImage& addition;
  qmr::MosaicOverlap overlap;
  qmr::MosaicMask mask;
  bool average;
  const qmr::RowLevels* levels;  // a plane, of a result on the 256-scale; null for a raw one
  int planes;

  // `rows` get the result, `others` are of the same length, `scratch` has room for two rows more.
  void Row(int y, int count, float* const* rows, float* const* others, float* scratch) const {
    const qmr::ColumnRun a = base.Row(y, rows, scratch);
    const qmr::ColumnRun b = addition.Row(y, others, scratch);
    if (average) {
      for (int p = 0; p < planes; ++p) qmr::MeanOfRows(rows[p], others[p], count, levels ? &levels[p] : nullptr);
      return;
    }
    const int begin = std::clamp(a.begin, b.begin, b.end);
    const int end = std::clamp(a.end, begin, b.end);
    float* own[kColours];
    const float* other[kColours];
    for (int p = 0; p < planes; ++p) {
      std::copy(others[p] + b.begin, others[p] + begin, rows[p] + b.begin);
      std::copy(others[p] + end, others[p] + b.end, rows[p] + end);
      own[p] = rows[p] + begin;
      other[p] = others[p] + begin;
    }
    qmr::ChooseRow(overlap, mask, planes, own, other, end - begin);
    for (int p = 0; levels && p < planes; ++p) qmr::RowToRaw(rows[p], count, levels[p]);
  }
};

}  // namespace

CImgMosaic::CImgMosaic() = default;
CImgMosaic::~CImgMosaic() = default;

void CImgMosaic::Do(CVynImage* base, int originX, int originY, CVynImage* addition, double shiftX, double shiftY,
                    double angle, int overlapMode, float* const maskColor, float* const outsideColor, int to256,
                    int average, CRect* pRect, int bProgress) {
  if (!base || !addition) return;
  int left, top, right, bottom;
  NormalizeRect(pRect, left, top, right, bottom);
  ShowProgressInit(bProgress, kMessageMosaic, bottom - top);
  qmr::Snapshot before(*this);
  const CVynImage& a = before.Of(*base);
  const CVynImage& b = before.Of(*addition);
  const qmr::RowTable rowsOfA(a);
  const qmr::RowTable rowsOfB(b);
  const double radians = angle * 3.141592653589793 / 180.0;
  const CfPoint centre = b.GetStdCtr();
  const int planes = qmr::HasRgb(*this) ? kColours : 1;
  const int width = static_cast<int>(qmr::WriteRow(*this, 0, planes - 1, left, right).size());
  const float fill = to256 && outsideColor ? outsideColor[0] : 0.0f;
  const Levels own(*this);
  const qmr::Placement placeOfA = {static_cast<double>(originX), static_cast<double>(originY), 0.0, 1.0, 1.0, 0.0, 0.0};
  const qmr::Placement placeOfB = {originX + shiftX, originY + shiftY, std::sin(radians), std::cos(radians), 1.0,
                                   centre.x,         centre.y};
  qmr::ForRowRanges(top, bottom, [&](int first, int last) {
    const qmr::MosaicImage placedA(rowsOfA, HasColours(a, rowsOfA), placeOfA, to256 != 0, Levels(a).planes, fill,
                                   planes, left, width);
    const qmr::MosaicImage placedB(rowsOfB, HasColours(b, rowsOfB), placeOfB, to256 != 0, Levels(b).planes, fill,
                                   planes, left, width);
    const Join join = {placedA,
                       placedB,
                       OverlapOf(overlapMode),
                       MaskOf(*this, maskColor, to256 != 0),
                       average != 0,
                       to256 ? own.planes : nullptr,
                       planes};
    std::vector<float> buffer(static_cast<std::size_t>(width) * static_cast<std::size_t>(planes + 2));
    float* others[kColours];
    for (int p = 0; p < planes; ++p) others[p] = buffer.data() + static_cast<std::ptrdiff_t>(p) * width;
    float* const scratch = buffer.data() + static_cast<std::ptrdiff_t>(planes) * width;
    for (int y = first; y < last; ++y) {
      float* rows[kColours];
      for (int p = 0; p < planes; ++p) rows[p] = qmr::WriteRow(*this, y, p, left, right).data();
      join.Row(y, width, rows, others, scratch);
      ShowProgress(1);
    }
  });
  ShowProgressEnd(nullptr);
}
