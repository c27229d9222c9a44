// Sine and cosine of plain arithmetic: the same bits on every processor, and loops over them vectorise.
#pragma once

namespace qmr {

// Sine and cosine on 0..pi/4 by their power series, the first omitted term below 2e-18. Our own, since those of the
// run-time library differ between processors in the last bit and do not vectorise.
inline double SinSmall(double b) {
  const double q = b * b;
  double s = 1.0 / 355687428096000.0;
  s = s * q - 1.0 / 1307674368000.0;
  s = s * q + 1.0 / 6227020800.0;
  s = s * q - 1.0 / 39916800.0;
  s = s * q + 1.0 / 362880.0;
  s = s * q - 1.0 / 5040.0;
  s = s * q + 1.0 / 120.0;
  s = s * q - 1.0 / 6.0;
  return b + b * q * s;
}

inline double CosSmall(double b) {
  const double q = b * b;
  double c = 1.0 / 20922789888000.0;
  c = c * q - 1.0 / 87178291200.0;
  c = c * q + 1.0 / 479001600.0;
  c = c * q - 1.0 / 3628800.0;
  c = c * q + 1.0 / 40320.0;
  c = c * q - 1.0 / 720.0;
  c = c * q + 1.0 / 24.0;
  c = c * q - 0.5;
  return 1.0 + q * c;
}

}  // namespace qmr
