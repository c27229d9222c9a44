#include "qmrimg/stacking/kernels/fft_trig.h"

#include "qmrimg/platform/octant_trig.h"

namespace qmr {
void UnitRoot(long k, long n, double* cosine, double* sine) {
  // Units of an eighth of a step, so that octants are whole numbers whatever n is.
  const long octant = 8 * k / n;
  const long rest = 8 * k - octant * n;  // 0 .. n - 1, an eighth turn being n
  const bool odd = octant & 1;
  const double t = 0.78539816339744831 * (static_cast<double>(odd ? n - rest : rest) / static_cast<double>(n));
  const double c = odd ? SinSmall(t) : CosSmall(t);
  const double s = odd ? CosSmall(t) : SinSmall(t);
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
