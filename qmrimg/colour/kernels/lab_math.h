// The formulas of RGB, XYZ and Lab, one pixel at a time, without a call or a branch: CColor and the row kernels share
// them, and a loop over them vectorises. All is plain IEEE arithmetic in double, so a pixel has the same bits in every
// vector width and on every processor (those of a C library's pow differ between processors).
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>

// Inlined however long: a loop that calls one of these does not vectorise.
#define QMR_EACH_PIXEL [[gnu::always_inline]] inline

namespace qmr {

// ---- Roots and powers -----------------------------------------------------------------------------------------------
//
// The scheme of all three: a guess from the exponent field, one series step, then the root cut to so few bits that its
// powers are exact. What is left over, relative to the argument, is known to full precision and goes through the
// binomial series. The results are within 0.6 units in the last place of the exact ones.

constexpr double kGamma = 1.2000000000000002;
constexpr double kInverseGamma = -0.5454545454545454;

// Coefficients 1..terms of (1 + e)^power - 1.
template <std::size_t terms>
constexpr std::array<double, terms> Binomial(double numerator, double denominator) {
  std::array<double, terms> series{};
  long double c = 1.0L;
  for (std::size_t k = 0; k < terms; ++k) {
    const long double step = static_cast<long double>(numerator) / denominator - static_cast<long double>(k);
    c *= step / static_cast<long double>(k + 1);
    series[k] = static_cast<double>(c);
  }
  return series;
}

template <std::size_t terms>
QMR_EACH_PIXEL double Series(const std::array<double, terms>& series, double e) {
  double sum = series[terms - 1];
  for (std::size_t k = terms - 1; k-- > 0;) sum = series[k] + sum * e;
  return sum * e;
}

// The leading `bits` significant bits of a number, cut off and rounded.
template <int bits>
QMR_EACH_PIXEL double Leading(double x) {
  return std::bit_cast<double>(std::bit_cast<std::uint64_t>(x) & (~std::uint64_t{0} << (53 - bits)));
}
template <int bits>
QMR_EACH_PIXEL double Rounded(double x) {
  const std::uint64_t half = std::uint64_t{1} << (52 - bits);
  return Leading<bits>(std::bit_cast<double>(std::bit_cast<std::uint64_t>(x) + half));
}

// The upper half of a number's bits as a number: 2^20 times log2 of the number, and the exponent's bias, to 9 %.
// 2^52 takes integers into and out of the mantissa, since vectors of 64-bit integers have no conversion.
constexpr double kTwo52 = 4503599627370496.0;
QMR_EACH_PIXEL double UpperHalf(double x) {
  const std::uint64_t upper = std::bit_cast<std::uint64_t>(x) >> 32;
  return std::bit_cast<double>(upper | std::bit_cast<std::uint64_t>(kTwo52)) - kTwo52;
}
QMR_EACH_PIXEL double FromUpperHalf(double upper) {
  return std::bit_cast<double>(std::bit_cast<std::uint64_t>(upper + kTwo52) << 32);
}

// x^(-1/n) to 4 % from the upper half of x. The middle of the error of a straight line for the logarithm is taken off.
constexpr double kOne = 1023.0 * 1048576.0;
constexpr double kLogMiddle = 0.0430357 * 1048576.0;
QMR_EACH_PIXEL double InverseRootGuess(double upper, double n) {
  return FromUpperHalf((kOne - kLogMiddle) * ((n + 1.0) / n) - upper * (1.0 / n));
}

// Natural logarithm to 0.03, for what an exponent's own rounding adds: x^(p + d) = x^p (1 + d ln x).
constexpr double kLn2 = 0.6931471805599453;
QMR_EACH_PIXEL double CoarseLog(double upper) {
  return (upper - (kOne - kLogMiddle)) * (kLn2 / 1048576.0);
}

// The cube root of a number above 1e-300; infinity stays.
QMR_EACH_PIXEL double CubeRoot(double x) {
  constexpr auto kGuess = Binomial<4>(-1, 3);
  constexpr auto kRest = Binomial<3>(1, 3);
  // An eighth, so that no power of the root overflows.
  const double v = x * 0.125;
  const double guess = InverseRootGuess(UpperHalf(v), 3.0);
  const double inverse = guess + guess * Series(kGuess, v * guess * (guess * guess) - 1.0);
  const double root = Rounded<17>(v * inverse * inverse);
  const double cube = root * root * root;
  const double result = root + root * Series(kRest, (v - cube) / cube);
  return x <= std::numeric_limits<double>::max() ? 2.0 * result : x;
}

// x^kGamma for a number above 1e-200; infinity stays.
QMR_EACH_PIXEL double PowerOfGamma(double x) {
  constexpr auto kGuess = Binomial<4>(-1, 5);
  constexpr auto kRest = Binomial<6>(1, 5);
  // kGamma is 6/5 and this much.
  constexpr double kExcess = static_cast<double>((5.0L * kGamma - 6.0L) / 5.0L);
  const double v = x * 0.03125;
  const double upper = UpperHalf(v);
  const double guess = InverseRootGuess(upper, 5.0);
  const double guess2 = guess * guess;
  const double inverse = guess + guess * Series(kGuess, v * guess * (guess2 * guess2) - 1.0);
  const double inverse2 = inverse * inverse;
  const double root = Rounded<10>(v * inverse2 * inverse2);
  const double power = root * root * root * root * root;
  const double s = Series(kRest, (v - power) / power);
  const double t = kExcess * (CoarseLog(upper) + 5.0 * kLn2);
  // x times its root, the long factor in two parts; a 256th, so that only a result that overflows does.
  const double root2 = 2.0 * root;
  const double part = x * 0.00390625;
  const double head = Leading<43>(part);
  const double result = head * root2 + ((part - head) * root2 + part * root2 * (s + (t + s * t)));
  // Above, the result overflows.
  return x < 1e257 ? 256.0 * result : std::numeric_limits<double>::infinity();
}

// x^kInverseGamma for a number above 1e-300; infinity gives 0.
QMR_EACH_PIXEL double PowerOfInverseGamma(double x) {
  constexpr auto kGuess = Binomial<4>(-1, 11);
  constexpr auto kRest = Binomial<12>(-6, 11);
  constexpr double kExcess = static_cast<double>((11.0L * kInverseGamma + 6.0L) / 11.0L);
  const double upper = UpperHalf(x);
  const double guess = InverseRootGuess(upper, 11.0);
  const double guess2 = guess * guess;
  const double guess5 = guess2 * guess2 * guess;
  const double inverse = guess + guess * Series(kGuess, x * guess5 * (guess5 * guess) - 1.0);
  const double root = Rounded<8>(inverse);
  // x root^11 - 1 in products that are exact, but for those that are small.
  const double root2 = root * root;
  const double root5 = root2 * root2 * root;
  const double root6 = root5 * root;
  const double head = Leading<13>(x);
  const double a = head * root5;
  const double aTail = (x - head) * root5;
  const double aHigh = Leading<26>(a);
  const double aLow = a - aHigh;
  const double bHigh = Leading<24>(root6);
  const double bLow = root6 - bHigh;
  const double e = (aHigh * bHigh - 1.0) + aHigh * bLow + aLow * bHigh + (aLow * bLow + aTail * root6);
  const double s = Series(kRest, e);
  const double t = kExcess * CoarseLog(upper);
  const double result = root6 + root6 * (s + (t + s * t));
  return x <= std::numeric_limits<double>::max() ? result : 0.0;
}

// ---- Colour spaces --------------------------------------------------------------------------------------------------

struct Rgb {
  double r;
  double g;
  double b;
};
struct Xyz {
  double x;
  double y;
  double z;
};
struct Lab {
  double l;
  double a;
  double b;
};

constexpr double kWhite = 5.6508;
// Means below this are black: no factor.
constexpr double kBlack = 1e-7;
// Where the cube root of Lab goes over into a straight line.
constexpr double kRootLimit = 0.008856;
constexpr double kRootAtLimit = 0.20689303442296383;
constexpr double kSlope = 7.78;
constexpr double kOffset = 0.13793103448275862;
constexpr double kDarkSlope = 903.29;
constexpr double kDarkLightness = 7.999536239999999;

QMR_EACH_PIXEL double LabRoot(double t) {
  const double root = CubeRoot(t);
  return t > kRootLimit ? root : kSlope * t + kOffset;
}

// The inverse of LabRoot; at the limit only nearly so, on purpose, as the constants stand.
QMR_EACH_PIXEL double LabCube(double t) {
  return t > kRootAtLimit ? t * t * t : (t - kOffset) / kSlope;
}

QMR_EACH_PIXEL Rgb Linear(const Rgb& c) {
  const double mean = (c.r + c.g + c.b) / 3.0;
  const double power = PowerOfGamma(mean);
  const double f = mean >= kBlack ? power : 1.0;
  return {f * c.r, f * c.g, f * c.b};
}

QMR_EACH_PIXEL Xyz LinearToXyz(const Rgb& c) {
  return {2.7689 * c.r + 1.7517 * c.g + 1.1302 * c.b, c.r + 4.5907 * c.g + 0.0601 * c.b, 0.0565 * c.g + 5.5943 * c.b};
}

QMR_EACH_PIXEL Lab XyzToLab(const Xyz& c) {
  const double y = c.y / kWhite;
  const double hx = LabRoot(c.x / kWhite);
  const double hy = LabRoot(y);
  const double hz = LabRoot(c.z / kWhite);
  // Above the limit hy is the cube root itself.
  return {y > kRootLimit ? 116.0 * hy - 16.0 : kDarkSlope * y, (hx - hy) * 500.0, (hy - hz) * 200.0};
}

QMR_EACH_PIXEL Xyz LabToXyz(const Lab& c) {
  const double root = (c.l + 16.0) / 116.0;
  const double y = c.l > kDarkLightness ? root * root * root : c.l / kDarkSlope;
  const double hy = LabRoot(y);
  const double hx = c.a / 500.0 + hy;
  const double hz = hy - c.b / 200.0;
  return {kWhite * LabCube(hx), kWhite * y, kWhite * LabCube(hz)};
}

QMR_EACH_PIXEL Rgb XyzToRgb(const Xyz& c) {
  // All three from the values before any is limited.
  const double blue = ((c.x - 2.7689 * c.y) * 0.0565 + 10.95948923 * c.z) / 61.365124684103996;
  const double green = (c.z - 5.5943 * blue) / 0.0565;
  const double red = c.y - 4.5907 * green - 0.0601 * blue;
  const double r = red < 0.0 ? 0.0 : red;
  const double g = green < 0.0 ? 0.0 : green;
  const double b = blue < 0.0 ? 0.0 : blue;
  const double mean = (r + g + b) / 3.0;
  const double power = PowerOfInverseGamma(mean);
  const double f = mean >= kBlack ? power : 1.0;
  return {f * r, f * g, f * b};
}

}  // namespace qmr
