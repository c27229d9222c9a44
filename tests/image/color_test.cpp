// Colour spaces.
#include <gtest/gtest.h>

#include <cmath>

#include "qmrimg/colour/color.h"
#include "qmrimg/image/vyn_image.h"
#include "tests/support/images.h"

namespace {

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

TEST(Color, OneFactorFromTheMeanLinearisesAllChannels) {
  CColor colour;
  colour.RgbToXyz(0.9, 0.3, 0.0);
  const double f = std::pow(0.4, 1.2000000000000002);
  EXPECT_NEAR(colour.GetR(), 0.9 * f, 1e-15);
  EXPECT_NEAR(colour.GetG() / colour.GetR(), 1.0 / 3.0, 1e-15) << "ratios pass through";
  EXPECT_NEAR(colour.GetX(), (2.7689 * 0.9 + 1.7517 * 0.3) * f, 1e-14);
  EXPECT_NEAR(colour.GetZ(), 0.0565 * 0.3 * f, 1e-15);
  // Black, and means below zero, have no factor.
  colour.RgbToXyz(-1.0, 0.5, 0.0);
  EXPECT_EQ(colour.GetR(), -1.0);
  colour.RgbToLab(0.0, 0.0, 0.0);
  EXPECT_EQ(colour.GetL(), 0.0);
  EXPECT_EQ(colour.Geta(), 0.0);
}

TEST(Color, WhiteIsNeutralAndNegativeChannelsAreLimitedTogether) {
  CColor colour;
  colour.RgbToLab(1.0, 1.0, 1.0);
  EXPECT_NEAR(colour.GetL(), 100.0, 0.01);
  EXPECT_NEAR(colour.Geta(), 0.0, 0.05);
  EXPECT_NEAR(colour.Getb(), 0.0, 0.05);
  // Green falls below zero; blue and red are those of the unlimited green.
  colour.XyzToRgb(2.0, 0.5, 0.0);
  EXPECT_EQ(colour.GetG(), 0.0);
  const double b = ((2.0 - 2.7689 * 0.5) * 0.0565) / 61.365124684103996;
  const double g = (0.0 - 5.5943 * b) / 0.0565;
  const double r = 0.5 - 4.5907 * g - 0.0601 * b;
  const double f = std::pow((r + b) / 3.0, -0.5454545454545454);
  EXPECT_NEAR(colour.GetR(), r * f, 1e-12);
  EXPECT_NEAR(colour.GetB(), b * f, 1e-12);
}

TEST(Color, SettersConvertNothing) {
  CColor colour;
  EXPECT_EQ(colour.GetX(), 0.0);
  colour.SetRgb(1.0, 2.0, 3.0);
  colour.SetLab(4.0, 5.0, 6.0);
  EXPECT_EQ(colour.GetB(), 3.0);
  EXPECT_EQ(colour.GetY(), 0.0);
  EXPECT_EQ(CColor(colour).Getb(), 6.0);
}

TEST(BrightL, OfGrayIsTheGrayItself) {
  for (const double v : {0.5, 20.0, 128.0, 255.0, 700.0})
    EXPECT_NEAR(CVynImage::CalcBrightL(v, v, v), v, 0.005 * v) << v;
  EXPECT_GT(CVynImage::CalcBrightL(0.0, 200.0, 0.0), CVynImage::CalcBrightL(200.0, 0.0, 0.0));
  EXPECT_EQ(CVynImage::CalcBrightL(1e9, 1e9, 1e9), CVynImage::CalcBrightL(5000.0, 5000.0, 5000.0));
}

}  // namespace
