// Sines and cosines for the transforms. They are polynomials of plain arithmetic, so that twiddle factors and window
// weights have the same bits on every processor, and loops over them run as vectors.
#pragma once

namespace qmr {

// cos(2 pi k / n) and sin(2 pi k / n) for 0 <= k < n; exact at multiples of an eighth turn but for the rounding of
// sqrt(0.5).
void UnitRoot(long k, long n, double* cosine, double* sine);

// cos(t) for 0 <= t <= pi, absolute error below 3e-16.
inline double CosHalfTurn(double t) {
  // cos t = -sin(t - pi / 2), the series of the sine up to the 23rd power; pi / 2 in two parts.
  const double x = (t - 1.57079632679489655800) - 6.12323399573676603587e-17;
  const double s = x * x;
  double r = -1.0 / 25852016738884976640000.0;
  r = r * s + 1.0 / 51090942171709440000.0;
  r = r * s - 1.0 / 121645100408832000.0;
  r = r * s + 1.0 / 355687428096000.0;
  r = r * s - 1.0 / 1307674368000.0;
  r = r * s + 1.0 / 6227020800.0;
  r = r * s - 1.0 / 39916800.0;
  r = r * s + 1.0 / 362880.0;
  r = r * s - 1.0 / 5040.0;
  r = r * s + 1.0 / 120.0;
  r = r * s - 1.0 / 6.0;
  return -(x + x * (s * r));
}

}  // namespace qmr
