#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "qmrimg/filters/filter_blur.h"
#include "tests/filters/rank_reference.h"
#include "tests/support/images.h"

namespace {

using qmr::test::At;
using qmr::test::FillNoise;
using qmr::test::Pixels;
using qmr::test::SamePixels;
using qmr::test::Shape;
using qmr::test::SortedDisc;

float Median(const CVynImage& image, int plane, int x, int y, double radius) {
  // Cells beyond the image meet nothing.
  const int reach = static_cast<int>(std::clamp(radius, 1.0, 100.0));
  const std::vector<float> sorted = SortedDisc(image, plane, x, y, reach, radius * radius, true);
  return sorted[sorted.size() / 2];
}

TEST(MedianFilter, OfFewerPixelsAtTheBorder) {
  for (const auto& [width, height] : {std::pair(1, 1), {1, 7}, {7, 1}, {2, 2}, {13, 9}, {70, 50}}) {
    CVynImage source;
    Shape(source, width, height, 4);
    FillNoise(source, 1);
    // Radii above the truncated one take the square's corners as far as they reach.
    for (const double scale : {1.0, 1.9, 4.0}) {
      double radius[] = {1.0 * scale, 1.5 * scale, 2.9 * scale, -2.0 * scale};
      CImgFilterBlur blur;
      Shape(blur, width, height, 4);
      CRect area(-3, -3, width - 1, height + 5);
      blur.MedianFilter(radius, &source, &area, 0);
      for (int p = 0; p < 4; ++p) {
        for (int y = 0; y < height; ++y) {
          for (int x = 0; x < width; ++x) {
            const float expected = x < width - 1 ? Median(source, p, x, y, radius[p]) : 0.0f;
            ASSERT_EQ(At(blur, p, x, y), expected) << radius[p] << " at " << x << ", " << y;
          }
        }
      }
    }
  }
}

TEST(MedianFilter, AnyRadiusEnds) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  CVynImage source;
  Shape(source, 9, 6, 1);
  FillNoise(source, 2);
  std::vector<float> all = Pixels(source, 0);
  std::sort(all.begin(), all.end());
  for (const double radius : {100.0, 1e9, 1e300, kInfinity, std::nan("")}) {
    CImgFilterBlur blur;
    blur.CopyImage(source);
    blur.MedianFilter(radius, &source, nullptr, 0);
    EXPECT_EQ(Pixels(blur, 0), std::vector<float>(54, std::isnan(radius) ? 0.0f : all[27])) << radius;
  }
}

TEST(MedianFilter, FullFormsBlendWithinTheirLimits) {
  CVynImage source;
  Shape(source, 60, 40, 2);
  FillNoise(source, 3);
  CImgFilterBlur simple, unlimited, limited, array;
  for (CImgFilterBlur* blur : {&simple, &unlimited, &limited, &array}) Shape(*blur, 60, 40, 2);
  simple.MedianFilter(2.0, &source, nullptr, 0);
  unlimited.MedianFilter(2.0, 0, 7.0, 8.0, 0, 9.0, 7.0, &source, nullptr, 0);
  EXPECT_TRUE(SamePixels(simple, unlimited));
  limited.MedianFilter(2.0, 1, 100.0, 20.0, 1, 150.0, 40.0, &source, nullptr, 0);
  // Plane 1 has other limits in the array form.
  double radius[] = {2.0, 3.0}, min[] = {100.0, 0.0}, minBuf[] = {20.0, 0.0}, max[] = {150.0, 60.0}, maxBuf[] = {40, 0};
  int minOn[] = {1, 0}, maxOn[] = {1, 1};
  array.MedianFilter(radius, minOn, min, minBuf, maxOn, max, maxBuf, &source, nullptr, 0);
  EXPECT_EQ(Pixels(array, 0), Pixels(limited, 0));
  int inRamps = 0;
  for (int y = 0; y < 40; ++y) {
    for (int x = 0; x < 60; ++x) {
      const float c = At(source, 0, x, y);
      double strength = 1.0;
      if (c < 100.0f) strength = std::max((c - 80.0) / 20.0, 0.0);
      if (c > 150.0f) strength = std::max((190.0 - c) / 40.0, 0.0);
      ASSERT_NEAR(At(limited, 0, x, y), c + (At(simple, 0, x, y) - c) * strength, 1e-3);
      inRamps += strength > 0.0 && strength < 1.0;
      const float other = At(source, 1, x, y);
      ASSERT_EQ(At(array, 1, x, y), other <= 60.0f ? Median(source, 1, x, y, 3.0) : other);
    }
  }
  EXPECT_GT(inRamps, 100);
}

}  // namespace
