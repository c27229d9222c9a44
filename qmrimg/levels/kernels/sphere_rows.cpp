#include "qmrimg/levels/kernels/sphere_rows.h"

namespace qmr {

void LocateParallel(const double* cosLongitude, const double* sinLongitude, std::size_t count, double cosLatitude,
                    double sinLatitude, const SphereView& view, double* x, double* y) {
  const SphereView s = view;
  const double up = sinLatitude * s.polarScale;
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    const double front = cosLatitude * cosLongitude[i];
    const double right = cosLatitude * sinLongitude[i];
    const double w0 = s.turn[0] * front + s.turn[1] * right + s.turn[2] * up;
    const double w1 = s.turn[3] * front + s.turn[4] * right + s.turn[5] * up;
    const double w2 = s.turn[6] * front + s.turn[7] * right + s.turn[8] * up;
    const bool pole = (w2 == 1.0) | (w2 == -1.0);
    const double sx = s.radius * (pole ? 0.0 : w1) + s.centreX;
    const double sy = s.centreY - s.radius * w2;
    // A position that is not a number is beyond the picture, too.
    const bool seen = (pole | !(w0 < 0.0)) & (sx >= 0.0) & (sx <= s.lastX) & (sy >= 0.0) & (sy <= s.lastY);
    x[i] = seen ? sx : -1.0;
    y[i] = sy;
  }
}

}  // namespace qmr
