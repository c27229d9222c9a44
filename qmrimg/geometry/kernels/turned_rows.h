// Rows that run across the source at an angle.
#pragma once

#include "qmrimg/geometry/kernels/window.h"

namespace qmr {

// x[0] = startX, x[i + 1] = x[i] + stepX and the same with y[i + 1] = y[i] - stepY, rounded one after the other.
void TurnedPositions(double startX, double startY, double stepX, double stepY, int count, double* x, double* y);

// A run of positions on several planes of one size. `out[p]` receives `count` samples of `planes[p]`.
struct TurnedRun {
  const double* x;
  const double* y;
  int count;
  const PlaneRows* planes;
  int planeCount;
  float* const* out;
};

// All positions of a run lie in 0..width, 0..height, monotonic on both axes.
template <class Taps>
void TurnedWindow(const TurnedRun& run);
void TurnedBilinear(const TurnedRun& run);
void TurnedNearest(const TurnedRun& run);

}  // namespace qmr
