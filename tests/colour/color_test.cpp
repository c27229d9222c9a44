// Colour spaces.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "qmrimg/colour/color.h"
#include "qmrimg/colour/kernels/lab_math.h"
#include "qmrimg/image/vyn_image.h"
#include "tests/support/images.h"

namespace {

// What `got` is away from the exact value, in units of its last place.
double UlpsFrom(long double exact, double got) {
  int exponent = 0;
  std::frexp(exact, &exponent);
  return static_cast<double>(std::fabs(got - exact) / std::ldexp(1.0L, exponent - 53));
}

double WorstUlps(double x) {
  const long double v = x;
  return std::max({UlpsFrom(std::cbrt(v), qmr::CubeRoot(x)),
                   UlpsFrom(std::pow(v, static_cast<long double>(qmr::kGamma)), qmr::PowerOfGamma(x)),
                   UlpsFrom(std::pow(v, static_cast<long double>(qmr::kInverseGamma)), qmr::PowerOfInverseGamma(x))});
}

TEST(LabMath, RootsAndPowersAreNearlyCorrectlyRounded) {
  static_assert(std::numeric_limits<long double>::digits >= 64);
  qmr::test::Random random(5);
  double worst = 0.0;
  // The arguments of pixels, and every exponent with what lies on both sides of a power of two.
  for (int i = 0; i < 100000; ++i) worst = std::max(worst, WorstUlps(1e-7 * std::pow(2e8, random.Uniform())));
  for (int e = -600; e < 850; ++e) {
    const double power = std::ldexp(1.0, e);
    for (const double x : {power, std::nextafter(power, 0.0), power * random.Uniform(1.0, 2.0)})
      worst = std::max(worst, WorstUlps(x));
  }
  EXPECT_LT(worst, 0.6);

  const double greatest = std::numeric_limits<double>::max();
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_LT(UlpsFrom(std::cbrt(static_cast<long double>(greatest)), qmr::CubeRoot(greatest)), 0.6);
  EXPECT_GT(qmr::PowerOfInverseGamma(greatest), 0.0);
  // The last argument whose power is a number, and the first whose is not.
  EXPECT_LT(qmr::PowerOfGamma(std::pow(greatest, 1.0 / qmr::kGamma) * 0.999999), infinity);
  EXPECT_EQ(qmr::PowerOfGamma(std::pow(greatest, 1.0 / qmr::kGamma) * 1.000001), infinity);
  EXPECT_EQ(qmr::PowerOfGamma(greatest), infinity);
  EXPECT_EQ(qmr::CubeRoot(infinity), infinity);
  EXPECT_EQ(qmr::PowerOfGamma(infinity), infinity);
  EXPECT_EQ(qmr::PowerOfInverseGamma(infinity), 0.0);
}

// Worked out with forty digits.
TEST(Color, KnownColours) {
  const struct {
    double rgb[3];
    double linearRed, x, lab[3];
  } forward[] = {
      {{1.0, 0.0, 0.0},
       0.26758052058674353,
       0.7409037034526341,
       {25.966830920540403, 73.12031978344346, 44.77039813886277}},
      {{0.0, 0.5, 0.0}, 0.0, 0.10201128866268125, {25.95436471598088, -49.673340741196114, 43.84288713772193}},
      {{0.25, 0.5, 0.75},
       0.1088188204120155,
       1.0515053797592646,
       {51.784909369516825, -6.7216375698850905, -20.688293958446014}},
      // Below the limit of the cube root.
      {{0.03125, 0.015625, 0.0},
       0.00021253675861721764,
       0.000774643350970104,
       {0.11195741609206286, 0.05112067956089921, 0.19120363158948345}},
  };
  const double tolerance = 1e-13;
  for (const auto& c : forward) {
    CColor colour;
    colour.RgbToLab(c.rgb[0], c.rgb[1], c.rgb[2]);
    EXPECT_NEAR(colour.GetR(), c.linearRed, tolerance) << "the argument is overwritten";
    EXPECT_NEAR(colour.GetX(), c.x, tolerance);
    EXPECT_NEAR(colour.GetL(), c.lab[0], tolerance);
    EXPECT_NEAR(colour.Geta(), c.lab[1], tolerance);
    EXPECT_NEAR(colour.Getb(), c.lab[2], tolerance);
  }
  const struct {
    double lab[3];
    double y, rgb[3];
  } back[] = {
      {{50.0, 20.0, -30.0}, 1.0408011788101192, {0.4158168332024856, 0.3826712214341944, 0.797002753962403}},
      {{5.0, 1.0, 2.0}, 0.03127899124312236, {0.11608608293737697, 0.091026471536541, 0.07296624740231296}},
      {{80.0, -40.0, 40.0}, 3.202946377465251, {0.5940619741035374, 1.0037423767141533, 0.39723239292353996}},
  };
  for (const auto& c : back) {
    CColor colour;
    colour.LabToRgb(c.lab[0], c.lab[1], c.lab[2]);
    EXPECT_NEAR(colour.GetY(), c.y, tolerance);
    EXPECT_NEAR(colour.GetR(), c.rgb[0], tolerance);
    EXPECT_NEAR(colour.GetG(), c.rgb[1], tolerance);
    EXPECT_NEAR(colour.GetB(), c.rgb[2], tolerance);
  }
}

TEST(Color, ConvertsThereAndBack) {
  qmr::test::Random random(1);
  for (int i = 0; i < 200; ++i) {
    const double r = random.Uniform(0.02, 1.0), g = random.Uniform(0.02, 1.0), b = random.Uniform(0.02, 1.0);
    CColor colour;
    colour.RgbToLab(r, g, b);
    CColor back;
    back.LabToRgb(colour.GetL(), colour.Geta(), colour.Getb());
    // The constants of the inverse are rounded, so it comes back to four digits.
    EXPECT_NEAR(back.GetR(), r, 2e-3);
    EXPECT_NEAR(back.GetG(), g, 2e-3);
    EXPECT_NEAR(back.GetB(), b, 2e-3);
    EXPECT_EQ(back.GetL(), colour.GetL());
  }
}

TEST(Color, DarkMeansHaveNoFactorAndNegativeChannelsAreLimitedTogether) {
  CColor colour;
  colour.RgbToXyz(-1.0, 0.5, 0.0);
  EXPECT_EQ(colour.GetR(), -1.0);
  colour.RgbToLab(0.0, 0.0, 0.0);
  EXPECT_EQ(colour.GetL(), 0.0);
  EXPECT_EQ(colour.Geta(), 0.0);
  colour.LabToRgb(0.0, 0.0, 0.0);
  EXPECT_EQ(colour.GetB(), 0.0);
  // Green falls below zero; blue and red are those of the unlimited green.
  colour.XyzToRgb(2.0, 0.5, 0.0);
  EXPECT_EQ(colour.GetG(), 0.0);
  const double b = ((2.0 - 2.7689 * 0.5) * 0.0565) / 61.365124684103996;
  const double r = 0.5 - 4.5907 * (-5.5943 * b / 0.0565) - 0.0601 * b;
  EXPECT_NEAR(colour.GetR(), r * std::pow((r + b) / 3.0, -0.5454545454545454), 1e-12);
}

TEST(BrightL, OfGrayIsTheGrayItself) {
  for (const double v : {0.5, 20.0, 128.0, 255.0, 700.0})
    EXPECT_NEAR(CVynImage::CalcBrightL(v, v, v), v, 0.005 * v) << v;
  EXPECT_GT(CVynImage::CalcBrightL(0.0, 200.0, 0.0), CVynImage::CalcBrightL(200.0, 0.0, 0.0));
  EXPECT_EQ(CVynImage::CalcBrightL(1e9, 1e9, 1e9), CVynImage::CalcBrightL(5000.0, 5000.0, 5000.0));
}

}  // namespace
