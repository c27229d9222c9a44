#include "qmrimg/colour/color.h"

#include <cmath>

namespace {

constexpr double kWhite = 5.6508;
// Exponents of the factor on the mean: 1.2 on top of the channels' own 1 makes 2.2.
constexpr double kGamma = 1.2000000000000002;
constexpr double kInverseGamma = -0.5454545454545454;
// Means below this are black: no factor.
constexpr double kBlack = 1e-7;

// Where the cube root of Lab goes over into a straight line.
constexpr double kRootLimit = 0.008856;
constexpr double kRootAtLimit = 0.20689303442296383;
constexpr double kSlope = 7.78;
constexpr double kOffset = 0.13793103448275862;
constexpr double kDarkSlope = 903.29;
constexpr double kDarkLightness = 7.999536239999999;

double MeanFactor(double r, double g, double b, double exponent) {
  const double mean = (r + g + b) / 3.0;
  return mean >= kBlack ? std::pow(mean, exponent) : 1.0;
}

double Root(double t) {
  return t > kRootLimit ? std::cbrt(t) : kSlope * t + kOffset;
}

// The inverse of Root; at the limit only nearly so, as its constants stand.
double Cube(double t) {
  return t > kRootAtLimit ? t * t * t : (t - kOffset) / kSlope;
}

}  // namespace

CColor::~CColor() = default;

void CColor::SetRgb(double red, double green, double blue) {
  R = red;
  G = green;
  B = blue;
}

void CColor::SetXyz(double x, double y, double z) {
  X = x;
  Y = y;
  Z = z;
}

void CColor::SetLab(double l, double aStar, double bStar) {
  L = l;
  a = aStar;
  b = bStar;
}

void CColor::RgbToXyz(double red, double green, double blue) {
  const double f = MeanFactor(red, green, blue, kGamma);
  SetRgb(f * red, f * green, f * blue);
  SetXyz(2.7689 * R + 1.7517 * G + 1.1302 * B, R + 4.5907 * G + 0.0601 * B, 0.0565 * G + 5.5943 * B);
}

void CColor::RgbToLab(double red, double green, double blue) {
  RgbToXyz(red, green, blue);
  const double y = Y / kWhite;
  const double hx = Root(X / kWhite);
  const double hy = Root(y);
  const double hz = Root(Z / kWhite);
  SetLab(y > kRootLimit ? 116.0 * std::cbrt(y) - 16.0 : kDarkSlope * y, (hx - hy) * 500.0, (hy - hz) * 200.0);
}

void CColor::XyzToRgb(double x, double y, double z) {
  SetXyz(x, y, z);
  // All three from the values before any is limited.
  const double blue = ((x - 2.7689 * y) * 0.0565 + 10.95948923 * z) / 61.365124684103996;
  const double green = (z - 5.5943 * blue) / 0.0565;
  const double red = y - 4.5907 * green - 0.0601 * blue;
  SetRgb(red < 0.0 ? 0.0 : red, green < 0.0 ? 0.0 : green, blue < 0.0 ? 0.0 : blue);
  const double f = MeanFactor(R, G, B, kInverseGamma);
  SetRgb(f * R, f * G, f * B);
}

void CColor::LabToRgb(double l, double aStar, double bStar) {
  SetLab(l, aStar, bStar);
  const double root = (l + 16.0) / 116.0;
  const double y = l > kDarkLightness ? root * root * root : l / kDarkSlope;
  const double hy = Root(y);
  const double hx = aStar / 500.0 + hy;
  const double hz = hy - bStar / 200.0;
  XyzToRgb(kWhite * Cube(hx), kWhite * y, kWhite * Cube(hz));
}
