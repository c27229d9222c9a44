#include "host/simulate/portable_math.h"

#include <bit>
#include <cstdint>
#include <limits>

namespace qmr::sim {

namespace {

// 1 / k!, for the series of the exponential.
constexpr double InverseFactorial[] = {
    1.0,        1.0,         1.0 / 2,      1.0 / 6,       1.0 / 24,       1.0 / 120,       1.0 / 720,
    1.0 / 5040, 1.0 / 40320, 1.0 / 362880, 1.0 / 3628800, 1.0 / 39916800, 1.0 / 479001600, 1.0 / 6227020800.0};

}  // namespace

double Exp(double x) {
  if (!(x > -700.0)) return 0.0;
  if (x > 700.0) x = 700.0;
  const double scaled = x * 1.4426950408889634;
  const auto n = static_cast<std::int64_t>(scaled + (scaled < 0.0 ? -0.5 : 0.5));
  // ln 2 in two parts: the first has trailing zeros, so that n times it is exact.
  const double count = static_cast<double>(n);
  const double r = (x - count * 6.93147180369123816490e-01) - count * 1.90821492927058770002e-10;
  double sum = InverseFactorial[13];
  for (int k = 12; k >= 0; --k) sum = sum * r + InverseFactorial[k];
  return sum * std::bit_cast<double>(static_cast<std::uint64_t>(n + 1023) << 52);
}

double Log(double x) {
  if (!(x > 2.3e-308) || x > 1.7e308) return -1e9;
  const auto bits = std::bit_cast<std::uint64_t>(x);
  int exponent = static_cast<int>(bits >> 52) - 1023;
  double m = std::bit_cast<double>((bits & 0x000FFFFFFFFFFFFFull) | 0x3FF0000000000000ull);
  if (m > 1.4142135623730951) {
    m *= 0.5;
    ++exponent;
  }
  // log m = 2 artanh((m - 1) / (m + 1)); |s| < 0.172, so the term of s^23 is below 1e-18.
  const double s = (m - 1.0) / (m + 1.0);
  const double s2 = s * s;
  double sum = 0.0;
  for (int k = 21; k >= 1; k -= 2) sum = sum * s2 + 1.0 / k;
  return 2.0 * s * sum + exponent * 0.6931471805599453;
}

double Power(double x, double y) {
  return x > 0.0 ? Exp(y * Log(x)) : 0.0;
}

SineCosine SinCosDegrees(double degrees) {
  if (!(degrees > -1e15 && degrees < 1e15)) {
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    return {none, none};
  }
  const double turns = degrees / 90.0;
  const auto quadrant = static_cast<std::int64_t>(turns + (turns < 0.0 ? -0.5 : 0.5));
  const double a = (degrees - static_cast<double>(quadrant) * 90.0) * (Pi / 180.0);
  const double a2 = a * a;
  double s = 1.0;
  double c = 1.0;
  for (int k = 18; k >= 2; k -= 2) {
    s = 1.0 - s * a2 / (k * (k + 1));
    c = 1.0 - c * a2 / (k * (k - 1));
  }
  s *= a;
  switch (quadrant & 3) {
    case 0:
      return {s, c};
    case 1:
      return {c, -s};
    case 2:
      return {-s, -c};
    default:
      return {-c, s};
  }
}

}  // namespace qmr::sim
