#include "qmrimg/levels/auto_level.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "qmrimg/levels/auto_stretch.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

// 100 x 50 pixels of the values 0 .. 4999, each once: one a bin.
void FillRamp(CVynImage& image, double scale = 1.0, double offset = 0.0) {
  Shape(image, 100, 50, 1);
  Fill(image, [=](int, int x, int y) { return static_cast<float>((100 * y + x) * scale + offset); });
}

TEST(Percentiles, OutsideZeroToOneAreFractionsOfTheRange) {
  CImgAutoLevel image;
  FillRamp(image);
  image.DoByNormal(0.0, 1.0, 0, nullptr);
  EXPECT_EQ(image.GetLevelMin(0), 0.0);
  EXPECT_EQ(image.GetLevelMax(0), 4999.0);
  image.DoByNormal(-0.1, 1.2, 0, nullptr);
  EXPECT_DOUBLE_EQ(image.GetLevelMin(0), -499.9);
  EXPECT_DOUBLE_EQ(image.GetLevelMax(0), 4999 * 1.2);
}

TEST(Percentiles, EveryBinCountsOneMoreThanItHolds) {
  CImgAutoLevel image;
  FillRamp(image);
  // Of 10000 the lowest 1000: every bin counts two, so bin 500 is the first above.
  image.DoByNormal(0.1, 0.9, 0, nullptr);
  EXPECT_NEAR(image.GetLevelMin(0), 500.0 / 5000 * 4999, 2.0);
  EXPECT_NEAR(image.GetLevelMax(0), 4500.0 / 5000 * 4999, 2.0);

  // 5000 pixels of one value and one far above: half of 10001 is met in the middle of the empty bins.
  CImgAutoLevel lone = Shaped<CImgAutoLevel>(5001, 1, 1);
  Fill(lone, [](int, int x, int) { return x == 0 ? 5000.0f : 0.0f; });
  lone.DoByNormal(0.6, 0.6, 0, nullptr);
  // T = 6000: 5000 + (i + 1) exceeds it first at i = 1000. From above T = 4000: 1 + (4999 - i + 1) first at i = 1000.
  EXPECT_DOUBLE_EQ(lone.GetLevelMin(0), 1000.0);
  EXPECT_DOUBLE_EQ(lone.GetLevelMax(0), 1001.0);
}

TEST(Percentiles, QueriesReverseThem) {
  CImgAutoLevel image;
  FillRamp(image, 2.0, 100.0);
  for (const double low : {0.05, 0.3}) {
    image.DoByNormal(low, 1.0 - low / 2, 0, nullptr);
    double gotLow = 9.0, gotHigh = 9.0;
    image.Get(gotLow, gotHigh, 3, nullptr);
    EXPECT_NEAR(gotLow, low, 1e-3);
    EXPECT_NEAR(gotHigh, 1.0 - low / 2, 1e-3);
  }
  image.SetLevel(0, -900.0, 20098.0);
  double low = 0.0, high = 0.0;
  image.GetByNormal(low, high, nullptr);
  EXPECT_DOUBLE_EQ(low, -1000.0 / 9998);
  EXPECT_DOUBLE_EQ(high, 19998.0 / 9998);
}

TEST(Percentiles, LuminanceMovesAllPlanesTogether) {
  CImgAutoLevel image = Shaped<CImgAutoLevel>(100, 50, 3);
  Fill(image, [](int plane, int x, int y) { return static_cast<float>((100 * y + x) * (plane + 1)); });
  for (int p = 0; p < 3; ++p) image.SetLevel(p, 0.0, 5000.0 * (p + 1));
  // All planes are equal on the 256-scale, so the luminance is plane 0 on the raw scale.
  image.DoByNormal(0.0, 1.0, 0, nullptr);
  EXPECT_NEAR(image.GetLevelMin(0), 0.0, 1e-3);
  EXPECT_NEAR(image.GetLevelMax(0), 4999.0, 1e-2);
  EXPECT_NEAR(image.GetLevelMax(2), 3 * 4999.0, 1e-1);
  image.DoByNormal(0.0, 1.0, 1, nullptr);
  EXPECT_EQ(image.GetLevelMax(1), 2 * 4999.0);
}

struct Moments {
  double mean, sigma;
};

Moments PlainMoments(const std::vector<double>& values, double centre = NAN) {
  double mean = 0.0, squares = 0.0;
  for (const double v : values) mean += v / static_cast<double>(values.size());
  if (!std::isnan(centre)) mean = centre;
  for (const double v : values) squares += (v - mean) * (v - mean) / static_cast<double>(values.size());
  return {mean, std::sqrt(squares)};
}

class MeanLevels : public testing::Test {
 protected:
  MeanLevels() {
    Shape(image, 61, 47, 3);
    FillNoise(image, 41, 100.0, 900.0);
    for (int p = 0; p < 3; ++p) image.SetLevel(p, 50.0 * p, 1000.0 + 100.0 * p);
  }
  std::vector<double> Values(int plane, const CRect& rect) const {
    std::vector<double> values;
    for (int y = rect.top; y < rect.bottom; ++y)
      for (int x = rect.left; x < rect.right; ++x) values.push_back(At(image, plane, x, y));
    return values;
  }
  std::vector<double> Luminance() const {
    std::vector<double> values;
    for (int y = 0; y < 47; ++y) {
      for (int x = 0; x < 61; ++x) {
        double g = 0.0;
        const double weights[3] = {0.299, 0.587, 0.114};
        for (int p = 0; p < 3; ++p)
          g += weights[p] * (At(image, p, x, y) - image.GetLevelMin(p)) / image.GetLevelRange(p) * 255.0;
        values.push_back(g / 255.0 * image.GetLevelRange(0) + image.GetLevelMin(0));
      }
    }
    return values;
  }

  CImgAutoLevel image;
};

TEST_F(MeanLevels, PerPlaneInARectangle) {
  CRect rect(5, 3, 50, 40);
  image.DoByMean(1.5, 2.5, 1, &rect);
  for (int p = 0; p < 3; ++p) {
    const Moments m = PlainMoments(Values(p, rect));
    EXPECT_NEAR(image.GetLevelMin(p), m.mean - 1.5 * m.sigma, 1e-8) << p;
    EXPECT_NEAR(image.GetLevelMax(p), m.mean + 2.5 * m.sigma, 1e-8) << p;
  }
  image.DoByMedian(1.0, 2.0, 1, &rect);
  for (int p = 0; p < 3; ++p) {
    float median = 0.0f;
    image.GetMedian(&median, 1, 0, p, &rect);
    const Moments m = PlainMoments(Values(p, rect), median);
    EXPECT_NEAR(image.GetLevelMin(p), median - m.sigma, 1e-8) << p;
    EXPECT_NEAR(image.GetLevelMax(p), median + 2.0 * m.sigma, 1e-8) << p;
  }
}

TEST_F(MeanLevels, OnLuminanceAndBack) {
  const Moments m = PlainMoments(Luminance());
  const double low = (m.mean - 0.0) / m.sigma, high = (1000.0 - m.mean) / m.sigma;
  double gotLow = 0.0, gotHigh = 0.0;
  image.Get(gotLow, gotHigh, 1, nullptr);
  EXPECT_NEAR(gotLow, low, 1e-6);
  EXPECT_NEAR(gotHigh, high, 1e-6);

  float median = 0.0f;
  image.GetMedian(&median, 1, 1, 0, nullptr);
  const Moments about = PlainMoments(Luminance(), median);
  image.Get(gotLow, gotHigh, 2, nullptr);
  EXPECT_NEAR(gotLow, median / about.sigma, 1e-6);
  EXPECT_NEAR(gotHigh, (1000.0 - median) / about.sigma, 1e-6);

  // The other planes follow plane 0 in shares of their range.
  image.DoByMean(2.0, 3.0, 0, nullptr);
  EXPECT_NEAR(image.GetLevelMin(0), m.mean - 2.0 * m.sigma, 1e-4);
  EXPECT_NEAR(image.GetLevelMin(2), (m.mean - 2.0 * m.sigma) / 1000.0 * 1100.0 + 100.0, 1e-3);
}

TEST_F(MeanLevels, FlatAndEmptyGoOnAsTheyCome) {
  CImgAutoLevel flat = Shaped<CImgAutoLevel>(4, 4, 1);
  Fill(flat, [](int, int, int) { return 9.0f; });
  double low = 0.0, high = 0.0;
  flat.Get(low, high, 1, nullptr);
  EXPECT_TRUE(std::isinf(low) && std::isinf(high));
  const CRect none(2, 2, 2, 4);
  flat.DoByMean(1.0, 1.0, 0, &none);
  EXPECT_TRUE(std::isnan(flat.GetLevelMin(0)));
}

TEST_F(MeanLevels, TheSameForAllThreads) {
  EXPECT_TRUE(SameForAllThreads([&] {
    double results[8] = {};
    image.Get(results[0], results[1], 0, nullptr);
    image.Get(results[2], results[3], 1, nullptr);
    image.Get(results[4], results[5], 2, nullptr);
    float mode = 0.0f, low = 0.0f;
    image.GetMode(&mode, &low, nullptr, 1, 0, nullptr);
    results[6] = mode;
    results[7] = low;
    return std::string(reinterpret_cast<const char*>(results), sizeof results);
  }));
}

// Three planes of one shape, a peak on a faint pedestal; plane 1 lies 100 higher.
class HistogramLevels : public testing::Test {
 protected:
  HistogramLevels() {
    Shape(image, 200, 150, 3);
    Random random(43);
    Fill(image, [&](int plane, int, int) {
      return static_cast<float>(1000.0 + (plane == 1 ? 100.0 : 0.0) + 20.0 * random.Normal());
    });
    for (int p = 0; p < 3; ++p) {
      image.SetLevel(p, 10.0 * p, 3000.0);
      image.GetMode(&mode[p], &low[p], &high[p], 0, p, nullptr);
    }
  }
  double Displayed(int plane) const {
    return (mode[plane] - image.GetLevelMin(plane)) / image.GetLevelRange(plane) * 255.0;
  }

  CImgAutoLevel image;
  float mode[3], low[3], high[3];
};

TEST_F(HistogramLevels, TheModeLandsWhereToldTo) {
  image.DoByHistogram(1.0, 1.0, 1, 1, nullptr);
  for (int p = 0; p < 3; ++p) {
    EXPECT_FLOAT_EQ(static_cast<float>(image.GetLevelMin(p)), low[p]);
    EXPECT_NEAR(Displayed(p), 127.5, 1e-3) << p;
  }
  image.DoByHistogram(1.0, 3.0, 1, 0, nullptr);
  for (int p = 0; p < 3; ++p) EXPECT_NEAR(Displayed(p), 63.75, 1e-3) << p;
}

TEST_F(HistogramLevels, BalanceOfPlanes) {
  // A plane's spread over that of plane 0 is the ratio of its pixels above the mode, since the two ratios multiply.
  int above0 = 0, above1 = 0, below0 = 0, below1 = 0;
  image.GetLevelRangeNum(mode[0], 1e9f, &above0, 0, nullptr);
  image.GetLevelRangeNum(mode[1], 1e9f, &above1, 1, nullptr);
  image.GetLevelRangeNum(0.0f, mode[0], &below0, 0, nullptr);
  image.GetLevelRangeNum(0.0f, mode[1], &below1, 1, nullptr);
  const double spread = static_cast<double>(above1) / above0;
  EXPECT_NE(below0, below1);
  image.DoByHistogram(2.0, 5.0, 1, 0, nullptr);
  EXPECT_NEAR(image.GetLevelMin(1), mode[1] - (static_cast<double>(mode[0]) - low[0]) * spread * 2.0, 1e-2);

  for (int p = 0; p < 3; ++p) image.SetLevel(p, 10.0 * p, 3000.0);
  image.DoByHistogram(1.0, 1.0, 1, 2, nullptr);
  const double shift = static_cast<double>(mode[0]) - mode[1];
  EXPECT_NEAR(image.GetLevelMin(1), 10.0 - shift - mode[0] * spread, 1e-3);
  EXPECT_NEAR(image.GetLevelMax(1), (3000.0 - mode[0]) * spread + 3000.0 - shift, 1e-3);
}

TEST_F(HistogramLevels, BalanceOfLuminance) {
  float luminance = 0.0f, end = 0.0f;
  image.GetMode(&luminance, &end, nullptr, 1, 0, nullptr);
  const double black = luminance - (luminance - end) * 0.5;
  image.DoByHistogram(0.5, 1.5, 0, 1, nullptr);
  for (int p = 0; p < 3; ++p) {
    EXPECT_NEAR(image.GetLevelMin(p), black, 1e-2);
    EXPECT_NEAR(Displayed(p), 63.75, 1e-2);
  }
  for (int p = 0; p < 3; ++p) image.SetLevel(p, 10.0 * p, 3000.0);
  image.GetMode(&luminance, &end, nullptr, 1, 0, nullptr);
  image.DoByHistogram(0.5, 1.5, 0, 0, nullptr);
  const double shift = static_cast<double>(mode[0]) - mode[1];
  const double shifted = luminance - (luminance - end) * 0.5 - shift;
  EXPECT_NEAR(image.GetLevelMin(1), shifted, 1e-2);
  EXPECT_NEAR(image.GetLevelMax(1), (mode[1] - shifted) / 63.75 * 255.0 + shifted - shift, 1e-2);

  for (int p = 0; p < 3; ++p) image.SetLevel(p, 10.0 * p, 3000.0);
  image.DoByHistogram(0.5, 1.5, 0, 2, nullptr);
  EXPECT_NEAR(image.GetLevelMin(1), -shift, 1e-3);
  EXPECT_NEAR(image.GetLevelMax(1), 3000.0 - shift, 1e-3);
  const double before = image.GetLevelMax(2);
  image.DoByHistogram(0.5, 1.5, 0, 3, nullptr);
  EXPECT_EQ(image.GetLevelMax(2), before);
}

TEST(AutoLevel, TwoPlanesHaveNoLuminance) {
  CImgAutoLevel image = Noise<CImgAutoLevel>(30, 20, 2, 44, 0.0, 100.0);
  double low = 0.0, high = 0.0;
  image.DoByNormal(0.1, 0.9, 0, nullptr);
  image.DoByMean(1.0, 1.0, 0, nullptr);
  image.DoByMedian(1.0, 1.0, 0, nullptr);
  image.DoByHistogram(1.0, 1.0, 0, 1, nullptr);
  for (int method = 0; method < 3; ++method) image.Get(low, high, method, nullptr);
  EXPECT_TRUE(std::isfinite(low) && std::isfinite(high));
}

TEST(AutoStretch, ScalesByTheLargestWeight) {
  CVynImage source = Noise(12, 9, 3, 45);
  CImgAutoStretch image = Shaped<CImgAutoStretch>(12, 9, 3);
  double gain[3] = {1.0, 2.0, 0.5}, offsetIn[3] = {10.0, -20.0, 0.25}, weight[3] = {2.0, 8.0, 4.0},
         offsetOut[3] = {0.1, 100.0, -3.0};
  tagRECT rect{-4, 2, 8, 90};
  image.DoStretch(&source, gain, offsetIn, weight, offsetOut, &rect);
  const double scale[3] = {4.0, 2.0, 1.0};
  const auto stretched = [&](int p, int x, int y) {
    if (x >= 8 || y < 2) return 0.0f;
    return static_cast<float>((At(source, p, x, y) - offsetIn[p]) * scale[p] +
                              static_cast<double>(static_cast<float>(offsetOut[p])));
  };
  EXPECT_TRUE(PixelsAre(stretched, image));
  const std::string before = Bytes(image);
  image.DoStretch(&source, gain, offsetIn, weight, offsetOut, nullptr);
  EXPECT_EQ(Bytes(image), before);
}

}  // namespace
}  // namespace qmr::test
