#include "qmrimg/stacking/kernels/fft_trig.h"

namespace qmr {
namespace {

// The series on [0, pi / 4]; the first term left out is below half a bit of the result.
double OctantSine(double t) {
  const double s = t * t;
  double r = 1.0 / 355687428096000.0;
  r = r * s - 1.0 / 1307674368000.0;
  r = r * s + 1.0 / 6227020800.0;
  r = r * s - 1.0 / 39916800.0;
  r = r * s + 1.0 / 362880.0;
  r = r * s - 1.0 / 5040.0;
  r = r * s + 1.0 / 120.0;
  r = r * s - 1.0 / 6.0;
  return t + t * (s * r);
}

double OctantCosine(double t) {
  const double s = t * t;
  double r = 1.0 / 20922789888000.0;
  r = r * s - 1.0 / 87178291200.0;
  r = r * s + 1.0 / 479001600.0;
  r = r * s - 1.0 / 3628800.0;
  r = r * s + 1.0 / 40320.0;
  r = r * s - 1.0 / 720.0;
  r = r * s + 1.0 / 24.0;
  return 1.0 - (s * 0.5 - s * (s * r));
}

}  // namespace

void UnitRoot(long k, long n, double* cosine, double* sine) {
  // Units of an eighth of a step, so that octants are whole numbers whatever n is.
  const long octant = 8 * k / n;
  const long rest = 8 * k - octant * n;  // 0 .. n - 1, an eighth turn being n
  const bool odd = octant & 1;
  const double t = 0.78539816339744831 * (static_cast<double>(odd ? n - rest : rest) / static_cast<double>(n));
  const double c = odd ? OctantSine(t) : OctantCosine(t);
  const double s = odd ? OctantCosine(t) : OctantSine(t);
  // An odd octant was measured back from its end, so (c, s) is the point within the quadrant.
  switch (octant / 2) {
    case 0:
      *cosine = c, *sine = s;
      break;
    case 1:
      *cosine = -s, *sine = c;
      break;
    case 2:
      *cosine = -c, *sine = -s;
      break;
    default:
      *cosine = s, *sine = -c;
      break;
  }
}

}  // namespace qmr
