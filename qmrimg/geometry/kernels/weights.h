// Weights of the interpolation windows. The per-pixel members and the row engines share these functions, so that
// both give the same bits.
#pragma once

#include <cstddef>

#include "qmrimg/platform/octant_trig.h"

namespace qmr {

// The two pieces of the cubic kernel of Keys (1981), u >= 0.
inline double BicubicInner(double u, double a) {
  const double u2 = u * u;
  return 1.0 - (a + 3.0) * u2 + (a + 2.0) * (u2 * u);
}
inline double BicubicOuter(double u, double a) {
  const double u2 = u * u;
  return a * (u2 * u - 5.0 * u2 + 8.0 * u - 4.0);
}

// A window of kTaps columns (or rows), the first kBefore before the truncated position. Weights(f, w, step) writes
// the weights for a fraction 0 <= f <= 1 to w[0], w[step], ...: pointers, not a returned array, so that loops over
// many fractions vectorise. They are not normalised, on purpose.
struct BicubicTaps {
  static constexpr int kTaps = 4;
  static constexpr int kBefore = 1;
  static void Weights(double f, double* w, std::ptrdiff_t step) {
    constexpr double a = -0.5;
    w[0] = BicubicOuter(f + 1.0, a);
    w[step] = BicubicInner(f, a);
    w[2 * step] = BicubicInner(1.0 - f, a);
    w[3 * step] = BicubicOuter(2.0 - f, a);
  }
};

// The Lanczos kernel is sin(p / n) sin(p) n / p^2 with p = pi |t|. All taps of one fraction follow from one sine and
// one cosine by angle addition, within 2e-15 of it. With g = min(f, 1 - f) every factor keeps its relative accuracy; f
// above one half is the mirror image. Below kTiny the square would underflow, and the kernel is 1 to the last bit.
inline constexpr double kTiny = 1.0e-100;

inline double Square(double v) {
  return v * v;
}

struct Lanczos2Taps {
  static constexpr int kTaps = 4;
  static constexpr int kBefore = 1;
  static void Weights(double f, double* w, std::ptrdiff_t step) {
    const bool mirrored = f > 0.5;
    const double g = mirrored ? 1.0 - f : f;
    const double b = g * 1.5707963267948966;
    const double s = SinSmall(b);
    const double c = CosSmall(b);
    // sin(pi g) * 2 / pi^2
    const double k = 2.0 * s * c * 0.20264236728467555;
    const double ks = k * s;
    const double kc = k * c;
    // Two weights share a division: 1 / a^2 = (b / (a b))^2.
    const double near = g > kTiny ? g : 1.0;
    const double below = g + 1.0, above = 1.0 - g, far = 2.0 - g;
    const double rc = 1.0 / (below * above);
    const double rs = 1.0 / (near * far);
    const double w0 = -kc * Square(rc * above);
    const double w1 = g > kTiny ? ks * Square(rs * far) : 1.0;
    const double w2 = kc * Square(rc * below);
    const double w3 = -ks * Square(rs * near);
    w[0] = mirrored ? w3 : w0;
    w[step] = mirrored ? w2 : w1;
    w[2 * step] = mirrored ? w1 : w2;
    w[3 * step] = mirrored ? w0 : w3;
  }
};

struct Lanczos3Taps {
  static constexpr int kTaps = 6;
  static constexpr int kBefore = 2;
  static void Weights(double f, double* w, std::ptrdiff_t step) {
    const bool mirrored = f > 0.5;
    const double g = mirrored ? 1.0 - f : f;
    const double b = g * 1.0471975511965976;
    const double s = SinSmall(b);
    const double c = CosSmall(b) * 0.8660254037844386;
    const double h = 0.5 * s;
    // sin(pi g) * 3 / pi^2
    const double k = s * (3.0 - 4.0 * s * s) * 0.3039635509270133;
    const double ks = k * s;
    const double plus = k * (c + h);
    const double minus = k * (c - h);
    const double near = g > kTiny ? g : 1.0;
    const double g1 = g + 1.0, g2 = g + 2.0, h1 = 1.0 - g, h2 = 2.0 - g, h3 = 3.0 - g;
    const double rMinus = 1.0 / (g2 * h1);
    const double rPlus = 1.0 / (g1 * h2);
    const double rs = 1.0 / (near * h3);
    const double w0 = minus * Square(rMinus * h1);
    const double w1 = -plus * Square(rPlus * h2);
    const double w2 = g > kTiny ? ks * Square(rs * h3) : 1.0;
    const double w3 = minus * Square(rMinus * g2);
    const double w4 = -plus * Square(rPlus * g1);
    const double w5 = ks * Square(rs * near);
    w[0] = mirrored ? w5 : w0;
    w[step] = mirrored ? w4 : w1;
    w[2 * step] = mirrored ? w3 : w2;
    w[3 * step] = mirrored ? w2 : w3;
    w[4 * step] = mirrored ? w1 : w4;
    w[5 * step] = mirrored ? w0 : w5;
  }
};

}  // namespace qmr
