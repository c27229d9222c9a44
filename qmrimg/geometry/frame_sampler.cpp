#include "qmrimg/geometry/frame_sampler.h"

#include <algorithm>
#include <cmath>

#include "qmrimg/geometry/row_plan.h"

namespace qmr {
namespace {

bool IsWhole(double v) {
  return v - std::trunc(v) == 0.0;
}

int ShiftTypeOf(const FramePlacement& placement) {
  if (placement.angle != 0.0) return 2;
  return IsWhole(placement.shiftX) && IsWhole(placement.shiftY) ? 0 : 1;
}

}  // namespace

FrameSampler::FrameSampler(int method, CVynImage* frame, const FramePlacement& placement, int width, int planes)
    : interp_(method), shiftY_(placement.shiftY) {
  const double radians = placement.angle * 3.141592653589793 / 180.0;
  interp_.SetBParam(ShiftTypeOf(placement), frame, -placement.shiftX, width - 1 - placement.shiftX, 0, 0.0f, planes,
                    std::sin(radians), std::cos(radians), 1.0, placement.useImageCenter);
  interp_.SetRowWidth(width);
}

void FrameSampler::Row(int y, float* const* lines, std::uint8_t* valid) {
  const CInterp::RowPlan plan = interp_.PlanMedian(y - shiftY_);
  if (valid) {
    std::fill(valid, valid + plan.begin, std::uint8_t{0});
    std::fill(valid + plan.begin, valid + plan.end, std::uint8_t{1});
    std::fill(valid + plan.end, valid + plan.count, std::uint8_t{0});
  }
  // Lines are handed on from their first covered column.
  constexpr int kTogether = 3;
  for (int first = 0; first < interp_.plane; first += kTogether) {
    const int count = std::min(kTogether, interp_.plane - first);
    float* covered[kTogether];
    for (int k = 0; k < count; ++k) {
      interp_.FillOutside(plan, lines[first + k]);
      covered[k] = lines[first + k] + plan.begin;
    }
    interp_.SampleMedian(plan, first, count, covered);
  }
}

void FrameSampler::Row(int y, double* values, int* valid) {
  interp_.GetBLineMed(y - shiftY_, values, valid);
}

}  // namespace qmr
