#include "qmrimg/filters/filter_block.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "tests/support/images.h"

namespace qmr::test {
namespace {

using testing::ElementsAre;

// A pixel is its row, to tell which row a window reads.
void FillRows(CVynImage& image, int width, int height) {
  Shape(image, width, height, 1);
  Fill(image, [](int, int, int y) { return static_cast<float>(y); });
}

std::vector<float> WindowRows(CVynImage& image, int radius, int centre) {
  const CFilterBlock block(&image, radius, 0, centre, 0, 2);
  std::vector<float> rows;
  for (int y = centre - radius; y <= centre + radius; ++y) rows.push_back(block.GetPixel(0, y));
  return rows;
}

TEST(FilterBlock, RowsMirrorAboutBothEnds) {
  CVynImage image;
  FillRows(image, 3, 7);
  EXPECT_THAT(WindowRows(image, 2, 6), ElementsAre(4, 5, 6, 5, 4));
  EXPECT_THAT(WindowRows(image, 2, 0), ElementsAre(2, 1, 0, 1, 2));
  EXPECT_THAT(WindowRows(image, 2, 3), ElementsAre(1, 2, 3, 4, 5));
  CVynImage one;
  FillRows(one, 3, 1);
  EXPECT_THAT(WindowRows(one, 3, 0), ElementsAre(0, 0, 0, 0, 0, 0, 0));
  CVynImage two;
  FillRows(two, 3, 2);
  // Beyond a period of twice the height the pattern repeats; the reflected row stays inside the image.
  for (const float v : WindowRows(two, 9, 1)) EXPECT_TRUE(v == 0.0f || v == 1.0f);
}

TEST(FilterBlock, PixelsOutsideTheWindowAreZero) {
  CVynImage image = Shaped(4, 5, 1);
  Fill(image, [](int, int x, int y) { return static_cast<float>(10 * y + x + 1); });
  CFilterBlock block(&image, 1, 0, 2, 0, 2);
  EXPECT_EQ(block.GetPixel(3, 3), 34.0f);
  EXPECT_EQ(block.GetPixel(4, 2), 0.0f);
  EXPECT_EQ(block.GetPixel(-1, 2), 0.0f);
  EXPECT_EQ(block.GetPixel(0, 4), 0.0f);
  // A plane that isn't there leaves the window as it was.
  EXPECT_EQ(block.Set(&image, 2, 0, 4, 1, 2), 0);
  EXPECT_EQ(block.GetPixel(1, 1), 12.0f);
  EXPECT_EQ(block.Set(&image, 1, 2, 2, 0, 2), 1);
  EXPECT_EQ(block.GetPixel(1, 2), 0.0f);
  EXPECT_EQ(block.GetPixel(2, 2), 23.0f);
}

// Sums over the common cells, columns clamped; `narrow` rounds to float after each term.
float PlainConvolution(const CVynImage& image, const CFilterMatrix& matrix, int x, int y, int radius, bool narrow,
                       float low = -1e30f, float high = 1e30f) {
  const int height = image.GetHeight();
  float floatSum = 0.0f;
  for (int j = -radius; j <= radius; ++j) {
    int row = std::abs(y + j);
    if (row >= height) row = 2 * height - 2 - row;
    for (int i = -radius; i <= radius; ++i) {
      const int column = std::min(std::max(x + i, 0), image.GetWidth() - 1);
      const float v = std::min(std::max(At(image, 0, column, row), low), high);
      if (narrow)
        floatSum = static_cast<float>(static_cast<double>(floatSum) + static_cast<double>(matrix.Get(i, j)) * v);
      else
        floatSum = floatSum + matrix.Get(i, j) * v;
    }
  }
  return floatSum;
}

TEST(FilterBlock, ConvolutionMatchesPlainSums) {
  CVynImage image = Noise(13, 9, 1, 5, -50.0, 300.0);
  float taps[25];
  for (int i = 0; i < 25; ++i) taps[i] = static_cast<float>(0.1 * i - 0.7);
  CFilterMatrix matrix(2, taps, 25);
  for (int y = 0; y < 9; ++y) {
    const CFilterBlock equal(&image, 2, 0, y, 0, 2);
    const CFilterBlock smaller(&image, 1, 0, y, 0, 2);
    const CFilterBlock larger(&image, 4, 0, y, 0, 2);
    for (int x = 0; x < 13; ++x) {
      const bool inside = x >= 2 && x + 2 < 13;
      EXPECT_EQ(equal.Convolve(&matrix, x), PlainConvolution(image, matrix, x, y, 2, !inside)) << x << ", " << y;
      EXPECT_EQ(smaller.Convolve(&matrix, x), PlainConvolution(image, matrix, x, y, 1, true)) << x << ", " << y;
      EXPECT_EQ(larger.Convolve(&matrix, x), PlainConvolution(image, matrix, x, y, 2, true)) << x << ", " << y;
      EXPECT_EQ(equal.ConvolveClamped(&matrix, x, 20.0f, 200.0f),
                PlainConvolution(image, matrix, x, y, 2, true, 20.0f, 200.0f));
    }
  }
}

TEST(FilterBlock, RadiusZero) {
  CVynImage image;
  FillRows(image, 3, 4);
  const float taps[1] = {2.0f};
  CFilterMatrix single(0, taps, 0);
  CFilterMatrix disc;
  disc.SetDisc(1, 1.0);
  CFilterBlock point(&image, 0, 0, 3, 0, 2);
  // Equal radii of 0 are a plain window; a common radius of 0 is not.
  EXPECT_EQ(point.Convolve(&single, 1), 6.0f);
  EXPECT_EQ(point.Convolve(&disc, 1), 0.0f);
  EXPECT_EQ(point.ConvolveClamped(&single, 1, 0.0f, 9.0f), 0.0f);
  EXPECT_EQ(point.GetSorted(&disc, 1, 0), 0.0f);
}

TEST(FilterBlock, SortsThePixelsUnderTheOnes) {
  CVynImage image = Shaped(5, 5, 1);
  Fill(image, [](int, int x, int y) { return static_cast<float>((7 * x + 3 * y) % 11); });
  *static_cast<float*>(image.GetImageAdr(2, 1, 0, 0, 0, nullptr)) = std::numeric_limits<float>::quiet_NaN();
  CFilterMatrix disc;
  disc.SetDisc(1, 1.0);
  CFilterBlock block(&image, 1, 0, 2, 0, 2);
  // Around (2, 2): itself 9, below 1, left 2, right 5, above not a number.
  const float* sorted = block.Sort(&disc, 2);
  ASSERT_EQ(block.GetSortedCount(), 5);
  EXPECT_THAT(std::vector<float>(sorted, sorted + 4), ElementsAre(1, 2, 5, 9));
  EXPECT_TRUE(std::isnan(sorted[4]));
  EXPECT_EQ(block.GetSorted(&disc, 2, 1), 2.0f);
  EXPECT_EQ(block.GetSorted(&disc, 2, 5), 0.0f);
  EXPECT_EQ(block.GetSorted(&disc, 2, -1), 0.0f);
  // At the left edge the clamped column counts twice: 6, 6, 3, 9 and the right neighbour 2.
  CFilterMatrix weighted;
  weighted.SetWeightedDisc(1, 1.0, 1.0);
  EXPECT_EQ(block.GetSorted(&disc, 0, 0), 2.0f);
  EXPECT_EQ(block.GetSorted(&disc, 0, 3), 6.0f);
  // Normalised cells are not ones.
  block.Sort(&weighted, 2);
  EXPECT_EQ(block.GetSortedCount(), 0);
}

}  // namespace
}  // namespace qmr::test
