// Minima, maxima and means; brightest pixels; centroids; shift and rotation from reference points.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "qmrimg/image/vyn_image.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

TEST(CalcMinMax, DividesByOneRowAndOneColumnTooFewInFloat) {
  CVynImage image = Noise(301, 203, 3, 1, -1000.0, 60000.0);
  image.CalcMinMax();
  for (int p = 0; p < 3; ++p) {
    float sum = 0.0f, min = At(image, p, 0, 0), max = min;
    for (const float v : Pixels(image, p)) {
      sum += v;
      min = std::min(min, v);
      max = std::max(max, v);
    }
    EXPECT_EQ(image.GetAvrPixel(p), sum / (300.0f * 202.0f));
    EXPECT_EQ(image.GetMinPixel(p), min);
    EXPECT_EQ(image.GetMaxPixel(p), max);
  }
  EXPECT_EQ(image.GetMaxPixel(3), 0.0f);
  CVynImage line = Noise(5, 1, 1, 1);
  line.CalcMinMax();
  EXPECT_TRUE(std::isinf(line.GetAvrPixel(0)));
}

TEST(CalcMinMax, MarginLeavesOutTheRimAndZeros) {
  CVynImage image = Shaped(8, 7, 1);
  Fill(image, [](int, int x, int y) {
    if (x < 2 || x >= 6 || y < 2 || y >= 5) return -999.0f;
    return (x + y) % 2 ? 0.0f : static_cast<float>(x * y);
  });
  image.CalcMinMax(2);
  // 2,2 4,2 / 3,3 5,3 / 2,4 4,4
  EXPECT_EQ(image.GetMinPixel(0), 4.0f);
  EXPECT_EQ(image.GetMaxPixel(0), 16.0f);
  EXPECT_EQ(image.GetAvrPixel(0), (4.0f + 8.0f + 9.0f + 15.0f + 8.0f + 16.0f) / 6.0f);
  // Margins that leave nothing, or reach out of the image.
  image.CalcMinMax(100);
  EXPECT_EQ(image.GetMaxPixel(0), -999.0f);
  EXPECT_TRUE(std::isnan(image.GetAvrPixel(0)));
  image.CalcMinMax(-100);
  EXPECT_EQ(image.GetMinPixel(0), -999.0f);
  image.CalcMinMax(std::numeric_limits<int>::min());
  EXPECT_EQ(image.GetMaxPixel(0), 16.0f);
}

TEST(Means, KeepTheirOrderAndPrecisionOnAnyNumberOfThreads) {
  CVynImage image = Noise(97, 53, 2, 2, 0.0, 1e6);
  image.CImage::SetLevel(1, 1000.1, 500000.0);
  float average = 0.0f;
  double squares = 0.0, sum = 0.0;
  for (int y = 0; y < 53; ++y) {
    float row = 0.0f;
    double rowSquares = 0.0, rowSum = 0.0;
    for (int x = 0; x < 97; ++x) {
      const float v = At(image, 1, x, y);
      row += v;
      rowSquares += v * v;
      rowSum += v;
    }
    average += row / (97.0f * 53.0f);
    squares += rowSquares / (97.0 * 53.0);
    sum += rowSum;
  }
  for (const int count : {1, 2, 7}) {
    const Threads threads(count);
    EXPECT_EQ(image.CalcAvr(1), average);
    EXPECT_EQ(image.CalcStdDev(1, nullptr),
              static_cast<float>(std::sqrt(squares - static_cast<double>(average * average))));
    const float other = 3e5f;
    EXPECT_EQ(image.CalcStdDev(1, &other), static_cast<float>(std::sqrt(squares - static_cast<double>(other * other))));
    EXPECT_EQ(image.GetAvrGrayRaw(1), static_cast<float>(sum / 96 / 52));
  }
  EXPECT_NEAR(image.GetAvrGray(1), image.GetAvrGrayRaw(1) - 1000.1, 0.1);
  EXPECT_EQ(image.GetAvrGray256f(1), image.To256(image.GetAvrGrayRaw(1), 1));
  for (const int plane : {-1, 2}) {
    EXPECT_EQ(image.CalcAvr(plane), 0.0f);
    EXPECT_EQ(image.CalcStdDev(plane, nullptr), 0.0f);
    EXPECT_EQ(image.GetAvrGrayRaw(plane), 0.0f);
  }
}

TEST(GetMaxPixel, IsNoFindWhenTheFirstPixelIsTheLargest) {
  CVynImage image = Shaped(5, 4, 1);
  Fill(image, [](int, int x, int y) { return x == 3 && y >= 1 ? 50.0f : 1.0f; });
  int x = 0, y = 0;
  EXPECT_EQ(image.GetMaxPixel(0, nullptr, x, y), 50.0f);
  EXPECT_EQ(CPoint(x, y), CPoint(3, 1)) << "the first of equals wins";
  const CRect rect(3, 2, 5, 4);
  EXPECT_EQ(image.GetMaxPixel(0, &rect, x, y), 50.0f);
  EXPECT_EQ(CPoint(x, y), CPoint(-1, -1));
  const CRect empty(4, 2, 2, 4);
  EXPECT_EQ(image.GetMaxPixel(0, &empty, x, y), 0.0f);
  EXPECT_EQ(CPoint(x, y), CPoint(-1, -1));
}

TEST(Get1stBrighterPixel, ScansRowsAndUsesBrightnessOnColour) {
  CVynImage mono = Shaped(6, 5, 1);
  CVynImage colour = Shaped(6, 5, 3);
  Fill(mono, [](int, int x, int y) { return static_cast<float>(y == 2 && x >= 4 ? 8 : y == 3 ? 20 : 0); });
  Fill(colour, [](int p, int x, int y) { return p == 1 && x == 1 && y == 4 ? 100.0f : 10.0f; });
  int x, y;
  EXPECT_EQ(mono.Get1stBrighterPixel(0, nullptr, 7.5, x, y), 8.0f);
  EXPECT_EQ(CPoint(x, y), CPoint(4, 2));
  EXPECT_EQ(mono.Get1stBrighterPixel(0, nullptr, 20.0, x, y), 0.0f);
  EXPECT_EQ(CPoint(x, y), CPoint(-1, -1));
  // The plane is ignored; 10 * 0.413 + 100 * 0.587.
  EXPECT_NEAR(colour.Get1stBrighterPixel(0, nullptr, 50.0, x, y), 62.83, 1e-4);
  EXPECT_EQ(CPoint(x, y), CPoint(1, 4));
}

TEST(LiftUp, MovesRowsAndLeavesTheLastOnes) {
  CVynImage image = Shaped(3, 5, 2);
  Fill(image, [](int p, int x, int y) { return static_cast<float>(100 * p + 10 * y + x); });
  image.LiftUp(0);
  image.LiftUp(-2);
  EXPECT_EQ(At(image, 0, 0, 0), 0.0f);
  image.LiftUp(2);
  const int rows[5] = {2, 3, 4, 3, 4};
  for (int y = 0; y < 5; ++y) EXPECT_EQ(At(image, 1, 2, y), static_cast<float>(100 + 10 * rows[y] + 2));
  image.LiftUp(50);
  EXPECT_EQ(At(image, 0, 0, 0), 20.0f);
}

// ---- Centroids ----------------------------------------------------------------------------------------------------

void AddStar(CVynImage& image, double cx, double cy, double background) {
  Fill(image, [&](int, int x, int y) {
    const double d = (x - cx) * (x - cx) + (y - cy) * (y - cy);
    return static_cast<float>(background + 100.0 * std::exp(-d / 4.0));
  });
}

class Centroids : public testing::TestWithParam<int> {};

TEST_P(Centroids, FindAStarInsideTheRectangle) {
  CVynImage image = Shaped(41, 31, GetParam());
  AddStar(image, 17.3, 12.6, 20.0);
  double x, y;
  ASSERT_EQ(image.GetCentroid(x, y, nullptr), 1);
  EXPECT_NEAR(x, 17.3, 0.01);
  EXPECT_NEAR(y, 12.6, 0.01);
  int ix, iy;
  image.GetCentroid(ix, iy, nullptr);
  EXPECT_EQ(CPoint(ix, iy), CPoint(17, 13));
  // The window is clamped to the image, the result is tested against the rectangle as it was given.
  const CRect wide(-50, -50, 90, 90);
  EXPECT_EQ(image.GetCentroid(x, y, &wide), 1);
  EXPECT_NEAR(x, 17.3, 0.01);
}

TEST_P(Centroids, OfAFlatWindowFail) {
  CVynImage image = Shaped(9, 9, GetParam());
  Fill(image, [](int, int, int) { return 0.0f; });
  double x, y, avr, min, max, flux;
  EXPECT_EQ(image.GetCentroid(x, y, nullptr), 0);
  EXPECT_EQ(image.GetCentroid2(x, y, nullptr, avr, min, max, flux), 0);
  EXPECT_EQ(flux, 0.0);
  int ix = 5, iy = 5;
  image.GetCentroid(ix, iy, nullptr);
  EXPECT_EQ(CPoint(ix, iy), CPoint(0, 0));
  const CRect rect(1, 2, 8, 9);
  image.GetCentroidRaw(ix, iy, &rect);
  EXPECT_EQ(CPoint(ix, iy), CPoint(4, 5)) << "the middle of the rectangle";
  const CRect empty(5, 5, 5, 5);
  EXPECT_EQ(image.GetCentroid(x, y, &empty), 0);
}

INSTANTIATE_TEST_SUITE_P(Planes, Centroids, testing::Values(1, 2, 3));

TEST(Centroid, NegativeValuesCountAsZeroInTheMeanOnly) {
  CVynImage image = Shaped(2, 1, 1);
  Fill(image, [](int, int x, int) { return x ? 30.0f : -50.0f; });
  double x, y;
  // Mean (0 + 30) / 2, weight (30 - 15) squared on the right pixel only.
  ASSERT_EQ(image.GetCentroid(x, y, nullptr), 1);
  EXPECT_EQ(x, 1.0);
  double avr, min, max, flux;
  image.GetCentroid2(x, y, nullptr, avr, min, max, flux);
  EXPECT_EQ(avr, 15.0);
  EXPECT_EQ(min, -50.0);
  EXPECT_EQ(max, 30.0);
}

TEST(Centroid2, DividesTheMeanOfColourTwice) {
  CVynImage mono = Shaped(20, 10, 1);
  CVynImage colour = Shaped(20, 10, 3);
  AddStar(mono, 12.0, 4.0, 50.0);
  AddStar(colour, 12.0, 4.0, 50.0);
  double x, y, avr, min, max, flux;
  ASSERT_EQ(mono.GetCentroid2(x, y, nullptr, avr, min, max, flux), 1);
  EXPECT_NEAR(avr, 50.0 + 100.0 * 4.0 * 3.14159265 / 200.0, 0.01);
  EXPECT_EQ(max, 150.0);
  EXPECT_GT(flux, 100.0);
  EXPECT_NEAR(x, 12.0, 0.01);
  double colourAvr;
  ASSERT_EQ(colour.GetCentroid2(x, y, nullptr, colourAvr, min, max, flux), 1);
  EXPECT_NEAR(colourAvr, avr / 200.0, 1e-6);
  EXPECT_LT(x, 11.5) << "with so small a mean the background pulls the centroid to the middle";
  EXPECT_EQ(min, colourAvr);
}

TEST(CentroidRaw, WeighsRawValuesWithoutTheLevels) {
  CVynImage image = Shaped(3, 2, 3);
  image.CImage::SetLevel(0, 1e6, 2e6);
  Fill(image, [](int p, int x, int y) { return p == 1 && y == 1 ? static_cast<float>(x + 1) : 0.0f; });
  double x, y;
  EXPECT_EQ(image.GetCentroidRaw(x, y, nullptr), 1);
  EXPECT_NEAR(x, 8.0 / 6.0, 1e-12);
  EXPECT_EQ(y, 1.0);
  // A negative weight can throw the point out of the rectangle.
  Fill(image, [](int p, int x, int) { return p == 1 ? (x == 0 ? -1.0f : x == 2 ? 0.9f : 0.0f) : 0.0f; });
  EXPECT_EQ(image.GetCentroidRaw(x, y, nullptr), 0);
  EXPECT_EQ(x, 1.0);
  EXPECT_EQ(y, 1.0);
}

// ---- Fit ----------------------------------------------------------------------------------------------------------

TEST(FitPrm, GivesShiftAndAngleAsFarAsThePointsGo) {
  CVynImage image = Shaped(100, 80, 1);
  CVynImage reference = Shaped(60, 50, 1);
  double dx = 1, dy = 1, angle = 1;
  EXPECT_EQ(image.GetFitPrm(&reference, dx, dy, angle), 0);
  EXPECT_EQ(dx + dy + angle, 0.0);
  EXPECT_EQ(reference.GetStdCtr().x, 30.0) << "the reference gets its middle as centre";

  image.SetStdPt(0, CfPoint(50.75, 40.0));
  reference.SetStdPt(0, CfPoint(50.0, 42.5));
  EXPECT_EQ(image.GetFitPrm(&reference, dx, dy, angle, 10.0, 20.0, 30.0), 1);
  EXPECT_EQ(dx, 10.75);
  EXPECT_EQ(dy, 17.5);
  EXPECT_EQ(angle, 0.0);

  // A second point that differs in fractions only is none.
  image.SetStdPt(1, CfPoint(50.1, 40.9));
  reference.SetStdPt(1, CfPoint(70, 42));
  EXPECT_EQ(image.GetFitPrm(&reference, dx, dy, angle), 1);

  // The line of the reference points left and level (from point 1 to point 0), that of the image points up.
  image.SetStdPt(1, CfPoint(50, 60));
  EXPECT_EQ(image.GetFitPrm(&reference, dx, dy, angle, 0.0, 0.0, 1.0), 2);
  EXPECT_NEAR(angle, 180.0 - 90.0 + 1.0, 1e-12);
}

TEST(FitPrm, FromCentroids) {
  CVynImage image = Shaped(40, 40, 1);
  CVynImage reference = Shaped(40, 40, 1);
  AddStar(image, 22.0, 15.0, 10.0);
  AddStar(reference, 20.5, 18.0, 10.0);
  double dx, dy;
  EXPECT_EQ(image.GetFitPrmFromCentroid(&reference, dx, dy), 1);
  EXPECT_NEAR(dx, 1.5, 0.01);
  EXPECT_NEAR(dy, -3.0, 0.01);
}

}  // namespace
}  // namespace qmr::test
