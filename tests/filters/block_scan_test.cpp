#include "qmrimg/filters/block_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "qmrimg/filters/filter_block.h"
#include "tests/support/images.h"

namespace {

using qmr::BlockScan;
using qmr::test::FillNoise;
using qmr::test::Shape;

// A kernel of all signs; a sparse one has zeros in it.
CFilterMatrix Kernel(int radius, bool dense) {
  CFilterMatrix matrix;
  matrix.Alloc(radius, 0, 1);
  qmr::test::Random random(static_cast<std::uint64_t>(radius) + 7);
  for (int y = -radius; y <= radius; ++y)
    for (int x = -radius; x <= radius; ++x)
      if (dense || random.Integer(0, 2) == 0) *matrix.At(x, y) = static_cast<float>(random.Uniform(-1.0, 1.3));
  return matrix;
}

bool Same(float a, float b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

// Compares both convolutions with those of the window class at columns left..right - 1 of every step-th row, from the
// last row upwards for a step below 0.
void Compare(CVynImage& image, int radius, CFilterMatrix& matrix, int left, int right, int step = 1) {
  BlockScan scan(image, 0, radius, left, right);
  const int first = std::max(left, 0), last = std::min(right, image.GetWidth());
  for (int y = step > 0 ? 0 : image.GetHeight() - 1; y >= 0 && y < image.GetHeight(); y += step) {
    ASSERT_TRUE(scan.MoveTo(y));
    ASSERT_EQ(scan.Centre().size(), static_cast<std::size_t>(std::max(last - first, 0)));
    std::vector<float> plain(scan.Centre().size()), limited(plain.size());
    scan.Convolve(matrix, plain);
    // Other limits every few rows.
    const float low = 40.0f + static_cast<float>(y / 3), high = 180.0f;
    scan.ConvolveClamped(matrix, low, high, limited);
    const CFilterBlock block(&image, radius, 0, y, 0, 2);
    for (int x = first; x < last; ++x) {
      const auto i = static_cast<std::size_t>(x - first);
      ASSERT_TRUE(Same(plain[i], block.Convolve(&matrix, x))) << plain[i] << " at " << x << ", " << y;
      ASSERT_TRUE(Same(limited[i], block.ConvolveClamped(&matrix, x, low, high)))
          << limited[i] << " limited at " << x << ", " << y;
      ASSERT_TRUE(Same(scan.Centre()[i], qmr::test::At(image, 0, x, y)));
    }
  }
}

TEST(BlockScan, IsTheWindowOfEveryPixel) {
  const int sizes[][2] = {{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {300, 20}};
  for (const auto& [width, height] : sizes) {
    CVynImage image;
    Shape(image, width, height, 1);
    FillNoise(image, 3, -50.0, 300.0);
    for (const int radius : {0, 1, 2, 5, 11}) {
      SCOPED_TRACE(testing::Message() << width << " x " << height << ", radius " << radius);
      CFilterMatrix sparse = Kernel(radius, false), dense = Kernel(radius, true);
      Compare(image, radius, sparse, width / 3, std::max(width - 1, width / 3 + 1));
      Compare(image, radius, dense, -3, width + 3);
    }
  }
}

TEST(BlockScan, TakesTheCellsInCommonAndRowsInAnyOrder) {
  CVynImage image;
  Shape(image, 30, 40, 1);
  FillNoise(image, 4);
  CFilterMatrix point = Kernel(0, true), smaller = Kernel(1, true), larger = Kernel(4, true), none;
  for (CFilterMatrix* matrix : {&point, &smaller, &larger, &none})
    for (const int radius : {0, 2}) Compare(image, radius, *matrix, 0, 30);
  CFilterMatrix equal = Kernel(3, false);
  for (const int step : {-1, -5, 2, 6, 7, 8, 25}) Compare(image, 3, equal, 0, 30, step);
}

TEST(BlockScan, ZerosMeetInfinities) {
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  CVynImage image;
  Shape(image, 60, 30, 1);
  qmr::test::Fill(image, [=](int, int x, int y) {
    if (y == 20) return x == 40 || x == 41 ? 3e38f : 1.0f;
    return x == 20 && y == 5 ? inf : x == 59 && y == 15 ? -inf : x == 0 && y == 28 ? nan : static_cast<float>(x - y);
  });
  CFilterMatrix matrix = Kernel(2, false);
  *matrix.At(-1, 0) = 0.0f;
  Compare(image, 2, matrix, 0, 60);
}

TEST(BlockScan, HasNoRowsOutsideTheImage) {
  CVynImage image, bytes(8, 8, 5, 1, 1.0, 0.0, 1);
  Shape(image, 8, 5, 1);
  BlockScan scan(image, 0, 1, 0, 8), noPlane(image, 1, 1, 0, 8), noColumns(image, 0, 1, 8, 12),
      noFloats(bytes, 0, 1, 0, 8);
  for (BlockScan* none : {&noPlane, &noColumns, &noFloats}) EXPECT_FALSE(none->MoveTo(2));
  EXPECT_TRUE(scan.MoveTo(2));
  CFilterMatrix matrix = Kernel(1, true);
  for (const int y : {-1, 5}) {
    EXPECT_FALSE(scan.MoveTo(y));
    EXPECT_TRUE(scan.Centre().empty());
    scan.Convolve(matrix, {});
    scan.ConvolveClamped(matrix, 0.0f, 1.0f, {});
  }
}

}  // namespace
