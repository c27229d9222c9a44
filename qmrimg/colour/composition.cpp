#include "qmrimg/colour/composition.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <span>

#include "qmrimg/geometry/interp.h"
#include "qmrimg/image/pixel_math.h"
#include "qmrimg/image/row_access.h"

namespace qmr {
namespace {

bool IsWhole(double v) {
  return v == std::trunc(v);
}

// The row routine of CInterp that a frame needs: copied, shifted or turned rows.
int ShiftTypeOf(const ComposedFrame& frame) {
  if (frame.angle != 0.0) return 2;
  return IsWhole(frame.dx) && IsWhole(frame.dy) ? 0 : 1;
}

// Rows of one plane of a frame, one object a worker.
class PlaneSampler {
 public:
  PlaneSampler(const ComposedPlane& from, const ComposedRect& rect, int useImageCenter, int method)
      : interp_(method), dy_(from.frame.dy) {
    const ComposedFrame& frame = from.frame;
    const Turn turn = TurnOf(frame.angle);
    // Rounded to float on purpose: sampled positions depend on it.
    interp_.SetBParam(ShiftTypeOf(frame), frame.image, static_cast<float>(rect.left - frame.dx),
                      static_cast<float>(rect.right - frame.dx), 0, 0.0f, from.plane, turn.sine, turn.cosine, 1.0,
                      useImageCenter);
  }
  void Row(int y, int width, float* row) {
    interp_.SetRowWidth(width);
    interp_.GetBLine(y - dy_, row);
  }

 private:
  CInterp interp_;
  double dy_;
};

}  // namespace

Turn TurnOf(double degrees) {
  const double radians = degrees * 3.141592653589793 / 180.0;
  return {std::sin(radians), std::cos(radians)};
}

Levels LevelsOf(const CVynImage& image, int plane) {
  return {image.GetLevelMin(plane), image.GetLevelMax(plane)};
}
Levels MeanLevels(const Levels& a, const Levels& b) {
  return {(a.min + b.min) * 0.5, (a.max + b.max) * 0.5};
}

ComposedRect ClampRect(const CVynImage& target, const CRect* rect) {
  ComposedRect r;
  target.NormalizeRect(rect, r.left, r.top, r.right, r.bottom);
  return r;
}

int PlaneOf(const CVynImage& frame, int plane) {
  return HasRgb(frame) ? plane : 0;
}

int RowsOf(CVynImage& target, const ComposedRect& rect, int y, float* (&rows)[kRgbPlanes]) {
  std::size_t width = static_cast<std::size_t>(std::max(rect.right - rect.left, 0));
  for (int p = 0; p < kRgbPlanes; ++p) {
    const std::span<float> row = WriteRow(target, y, p, rect.left, rect.right);
    rows[p] = row.data();
    width = std::min(width, row.size());
  }
  return static_cast<int>(width);
}

void ComposeRows(CVynImage& target, const ComposedRect& rect, const ComposedPlane (&planes)[kRgbPlanes],
                 int useImageCenter, int method, FunctionRef<void(RgbRows rows, int width)> finish) {
  ForRowRanges(rect.top, rect.bottom, [&](int first, int last) {
    std::optional<PlaneSampler> samplers[kRgbPlanes];
    for (int p = 0; p < kRgbPlanes; ++p) {
      if (planes[p].frame.image) samplers[p].emplace(planes[p], rect, useImageCenter, method);
    }
    for (int y = first; y < last; ++y) {
      float* rows[kRgbPlanes];
      if (const int width = RowsOf(target, rect, y, rows)) {
        for (int p = 0; p < kRgbPlanes; ++p) {
          if (samplers[p]) samplers[p]->Row(y, width, rows[p]);
        }
        finish(rows, width);
      }
      target.ShowProgress(1);
    }
  });
}

RgbSampler::RgbSampler(const ComposedFrame& frame, int useImageCenter, double scale)
    : rows_(*frame.image), planes_(HasRgb(*frame.image) && rows_.Planes() >= kRgbPlanes ? kRgbPlanes : 1) {
  const CVynImage& image = *frame.image;
  const Turn turn = TurnOf(frame.angle);
  const CfPoint centre = useImageCenter ? image.GetStdCtr() : CfPoint(image.GetWidth() * 0.5, image.GetHeight() * 0.5);
  placement_ = {frame.dx, frame.dy, turn.sine, turn.cosine, scale, centre.x, centre.y};
  for (int p = 0; p < kRgbPlanes; ++p) levels_[p] = {image.GetLevelMin(p), image.GetLevelRange(p)};
}

void RgbSampler::Row(int left, int y, int width, RgbRows out) const {
  SampleRow256(rows_, placement_, levels_, planes_, left, y, width, out);
  for (int p = planes_; p < kRgbPlanes; ++p) std::copy_n(out[0], width, out[p]);
}

}  // namespace qmr
