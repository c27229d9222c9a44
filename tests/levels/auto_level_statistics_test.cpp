// Medians, modes and ranges against plain loops and numbers worked by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "qmrimg/levels/auto_level.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

float Median(CImgAutoLevel& image, int subsample, int useLuminance = 0, int plane = 0, const CRect* rect = nullptr) {
  float result = -1.0f;
  image.GetMedian(&result, subsample, useLuminance, plane, rect);
  return result;
}

// Element n / 2 of the block sums in float, over the block's pixels.
float PlainMedian(const CVynImage& image, int plane, const CRect& rect, int block) {
  std::vector<double> sums;
  for (int by = 0; by < rect.Height() / block; ++by) {
    for (int bx = 0; bx < rect.Width() / block; ++bx) {
      float sum = 0.0f;
      for (int j = 0; j < block; ++j)
        for (int i = 0; i < block; ++i) sum += At(image, plane, rect.left + bx * block + i, rect.top + by * block + j);
      sums.push_back(sum);
    }
  }
  std::sort(sums.begin(), sums.end());
  return static_cast<float>(sums[sums.size() / 2] / (block * block));
}

TEST(Median, IsTheUpperOfTheTwoMiddlePixels) {
  CImgAutoLevel image = Shaped<CImgAutoLevel>(4, 2, 1);
  Fill(image, [](int, int x, int y) { return static_cast<float>((3 * (4 * y + x)) % 8); });
  EXPECT_EQ(Median(image, 1), 4.0f);
  const CRect odd(0, 0, 3, 1);
  EXPECT_EQ(Median(image, 0, 0, 0, &odd), 3.0f);
  const CRect none(2, 2, 2, 2);
  EXPECT_EQ(Median(image, 1, 0, 0, &none), 0.0f);
  // A monochrome image has one plane, whatever is asked for.
  EXPECT_EQ(Median(image, 0, 1, 2), 4.0f);
  for (int x = 0; x < 3; ++x)
    *static_cast<float*>(image.GetImageAdr(x, 0, 0, 0, 0, nullptr)) = std::numeric_limits<float>::quiet_NaN();
  // 4, 7, 2, 5 and 1 are left, not-a-number counts as above them.
  EXPECT_EQ(Median(image, 0), 7.0f);
}

TEST(Median, BlocksGrowWithTheArea) {
  struct Case {
    int width, height, block;
  };
  for (const auto& [width, height, block] : {Case{250, 200, 1}, Case{50001, 1, 1}, Case{500, 240, 1}, Case{500, 300, 2},
                                             Case{333, 1001, 2}, Case{701, 803, 3}}) {
    CImgAutoLevel image = Noise<CImgAutoLevel>(width, height, 1, 31, 100.0, 60000.0);
    EXPECT_EQ(Median(image, 1), PlainMedian(image, 0, CRect(0, 0, width, height), block)) << width << " x " << height;
    EXPECT_EQ(Median(image, 0), PlainMedian(image, 0, CRect(0, 0, width, height), 1));
  }
}

TEST(Median, LuminanceWeighsRawPixels) {
  CImgAutoLevel image = Noise<CImgAutoLevel>(2500, 3, 3, 32);
  // Levels play no part.
  image.SetLevel(0, 10.0, 20.0);
  image.SetLevel(1, -5.0, 900.0);
  std::vector<float> values;
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 2500; ++x)
      values.push_back(
          static_cast<float>(0.299 * At(image, 0, x, y) + 0.587 * At(image, 1, x, y) + 0.114 * At(image, 2, x, y)));
  std::sort(values.begin(), values.end());
  EXPECT_EQ(Median(image, 1, 1, 2), values[values.size() / 2]);
  const CRect rect(100, 1, 180, 3);
  EXPECT_EQ(Median(image, 1, 0, 2, &rect), PlainMedian(image, 2, rect, 1));
}

// Median of a site as the text-book loop: samples `cell` apart, sums of `block` by `block` of them.
double PlainSiteMedian(const CVynImage& image, const CRect& area, int cell, int row, int column, int block) {
  std::vector<double> sums;
  const int step = cell * block;
  for (int y = 0; y + step <= area.Height(); y += step) {
    for (int x = 0; x + step <= area.Width(); x += step) {
      double sum = 0.0;
      for (int j = 0; j < block; ++j)
        for (int i = 0; i < block; ++i)
          sum += At(image, 0, area.left + x + i * cell + column, area.top + y + j * cell + row);
      sums.push_back(sum);
    }
  }
  std::sort(sums.begin(), sums.end());
  return sums[sums.size() / 2] / (block * block);
}

TEST(SiteMedians, BayerPositionsInOrder) {
  struct Case {
    int width, height, block;
  };
  // Between 50000 and 200000 pixels the formula gives 0, which counts as 1.
  for (const auto& [width, height, block] :
       {Case{12, 9, 1}, Case{301, 201, 1}, Case{801, 603, 1}, Case{1003, 805, 2}}) {
    CImgAutoLevel image = Noise<CImgAutoLevel>(width, height, 1, 33, 0.0, 4095.0);
    float result[4] = {};
    image.GetMedianBayer(result, 1);
    for (int site = 0; site < 4; ++site)
      EXPECT_EQ(result[site],
                static_cast<float>(PlainSiteMedian(image, CRect(0, 0, width, height), 2, site / 2, site % 2, block)))
          << width << " x " << height << ", site " << site;
  }
  CImgAutoLevel tiny = Shaped<CImgAutoLevel>(1, 5, 1);
  float result[4] = {9, 9, 9, 9};
  tiny.GetMedianBayer(result, 1);
  EXPECT_EQ(result[0], 0.0f);
}

TEST(SiteMedians, HoneycombGainsAreAtLeastOne) {
  CImgAutoLevel image = Shaped<CImgAutoLevel>(1541, 1325, 1);
  Random random(34);
  Fill(image,
       [&](int, int x, int y) { return static_cast<float>(100 + 40 * (y % 4) + 17 * (x % 4) + random.Uniform()); });
  const int sites[8][2] = {{0, 1}, {1, 0}, {2, 1}, {3, 0}, {0, 3}, {1, 2}, {2, 3}, {3, 2}};
  for (const bool bordered : {false, true}) {
    image.GetHeader()->SetCameraModel(bordered ? CString(L"FinePixS2Pro ") : CString(L"Other"));
    const CRect area = bordered ? CRect(48, 30, 1541 - 48, 1325 - 30) : CRect(0, 0, 1541, 1325);
    // sqrt(area / 16 / 50000) + 0.5, truncated.
    const int block = 2;
    double medians[8], largest = 0.0, gains[8];
    for (int i = 0; i < 8; ++i) {
      medians[i] = PlainSiteMedian(image, area, 4, sites[i][0], sites[i][1], block);
      largest = std::max(largest, medians[i]);
    }
    image.GetMedianHoneyComb(gains, 1);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(gains[i], largest / medians[i]) << i;
    // Without the border the pattern is that of the sites; 30 rows turn it by two.
    EXPECT_EQ(gains[bordered ? 5 : 7], 1.0);
  }
  double nothing[8];
  CImgAutoLevel tiny = Shaped<CImgAutoLevel>(90, 50, 1);
  tiny.GetHeader()->SetCameraModel(L"FinePixS2Pro");
  tiny.GetMedianHoneyComb(nothing, 1);
  EXPECT_TRUE(std::isnan(nothing[0]));
}

TEST(Ranges, CountAndDeviations) {
  CImgAutoLevel image = Shaped<CImgAutoLevel>(5, 1, 3);
  Fill(image, [](int plane, int x, int) { return static_cast<float>(plane == 1 ? 2 * x : x); });
  int count = -1;
  double sigma = -1.0;
  image.GetLevelRangeNum(2.0f, 6.0f, &count, 1, nullptr);
  EXPECT_EQ(count, 3);
  image.GetLevelRangeStd(2.0f, 6.0f, &sigma, 1, nullptr);
  EXPECT_DOUBLE_EQ(sigma, std::sqrt(8.0 / 3.0));
  image.GetLevelDoubleRangeStd(2.0f, 6.0f, &sigma, 0, 1, nullptr);
  EXPECT_DOUBLE_EQ(sigma, std::sqrt((16.0 + 4.0 + 0.0) / 3.0));
  image.GetLevelRangeStd(100.0f, 200.0f, &sigma, 1, nullptr);
  EXPECT_EQ(sigma, 0.0);
  image.GetLevelDoubleRangeStd(100.0f, 200.0f, &sigma, 1, 0, nullptr);
  EXPECT_EQ(sigma, 0.0);
  // Raw weights: 0.413 x + 0.587 * 2 x = 1.587 x, whatever the levels.
  image.SetLevel(0, 3.0, 4.0);
  image.GetLevelDoubleRangeStd(0.0f, 4.0f, &sigma, 1, 0, nullptr);
  EXPECT_NEAR(sigma, std::sqrt((16.0 + (4 - 1.587) * (4 - 1.587) + (4 - 3.174) * (4 - 3.174)) / 3.0), 1e-6);
  image.GetLevelRangeNum(0.0f, 9.0f, &count, 3, nullptr);
  EXPECT_EQ(count, 0);
}

TEST(Mode, IsTheFirstHighestBinWithItsEnds) {
  // 4000 pixels: 0, then 100 once, 1000 twice as a peak of 2000 pixels with shoulders, then a far 5000.
  CImgAutoLevel image = Shaped<CImgAutoLevel>(4000, 1, 1);
  Fill(image, [](int, int x, int) {
    if (x == 0) return 0.0f;
    if (x == 1) return 5000.0f;
    if (x < 2000) return 1000.5f;
    if (x < 3500) return 1001.5f;
    return 1007.5f;
  });
  float mode = 0, low = 0, high = 0;
  image.GetMode(&mode, &low, &high, 0, 0, nullptr);
  // Bins are one level wide.
  EXPECT_FLOAT_EQ(mode, 1000.0f);
  // Only the pixel of 0 lies between 0 and the mode.
  EXPECT_FLOAT_EQ(low, 1000.0f - 6.0f * 1000.0f);
  // The bins 1008 .. 1018 are eleven quiet ones.
  EXPECT_FLOAT_EQ(high, 1018.0f);
  image.SetOrgBitsPixel(8);
  image.GetMode(&mode, nullptr, nullptr, 0, 0, nullptr);
  EXPECT_FLOAT_EQ(mode, 51 * 5000.0f / 256);

  CImgAutoLevel flat = Shaped<CImgAutoLevel>(9, 9, 1);
  Fill(flat, [](int, int, int) { return 7.0f; });
  flat.GetMode(&mode, &low, &high, 0, 0, nullptr);
  EXPECT_EQ(mode, 7.0f);
  EXPECT_EQ(low, 7.0f);
  EXPECT_EQ(high, 7.0f);
}

}  // namespace
}  // namespace qmr::test
