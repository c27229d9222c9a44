#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

#include "qmrimg/image/vyn_image.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

// The definition, pixel by pixel.
std::vector<int> Counted(const std::vector<double>& values, int bins, double min, double max) {
  std::vector<int> hist(static_cast<std::size_t>(bins));
  for (const double v : values) {
    if (!(min <= v && v <= max)) continue;
    const int bin = static_cast<int>((v - min) * (bins / (max - min)));
    ++hist[static_cast<std::size_t>(std::clamp(bin, 0, bins - 1))];
  }
  return hist;
}

class Histograms : public testing::TestWithParam<int> {};

TEST_P(Histograms, CountWhatTheDefinitionSays) {
  const int bins = GetParam();
  CVynImage image = Noise(1037, 23, 3, 1, -10.0, 300.0);
  image.SetLevel(0, 5.0, 400.0);
  image.SetLevel(1, -20.0, 235.0);
  image.SetLevel(2, 0.5, 100.5);
  const CRect rect(3, 2, 1500, 20);
  std::vector<double> plane, bright;
  for (int y = 2; y < 20; ++y) {
    for (int x = 3; x < 1037; ++x) {
      plane.push_back(At(image, 1, x, y));
      float c[3];
      for (int p = 0; p < 3; ++p)
        c[p] = (At(image, p, x, y) - static_cast<float>(image.GetLevelMin(p))) *
               static_cast<float>(255.0 / image.GetLevelRange(p));
      bright.push_back(0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2]);
    }
  }
  for (const int count : {1, 3}) {
    const Threads threads(count);
    std::vector<int> hist(static_cast<std::size_t>(bins), -1), r(hist), g(hist), b(hist);
    const int height = image.GetHistogram(hist.data(), bins, 0.0, 255.0, 1, 0, 1, 0, &rect, 0, 0);
    EXPECT_EQ(hist, Counted(plane, bins, 0.0, 255.0));
    EXPECT_EQ(height, *std::max_element(hist.begin(), hist.end()));
    image.GetHistogramRGB(r.data(), g.data(), b.data(), bins, 0.0, 255.0, nullptr, nullptr, 0, 1, 0, &rect, 0, 0);
    EXPECT_EQ(g, hist);
    EXPECT_NE(r, hist);
    // For brightness the limits go through the levels of plane 0.
    image.GetHistogram(hist.data(), bins, 20.0, 300.0, -1, 0, 1, 0, &rect, 0, 0);
    EXPECT_EQ(hist, Counted(bright, bins, image.To256(20.0, 0), image.To256(300.0, 0)));
  }
}

INSTANTIATE_TEST_SUITE_P(Bins, Histograms, testing::Values(1, 7, 256, 65536, 2000000));

TEST(Histogram, MaximumGoesToTheLastBinAndOddValuesToNone) {
  CVynImage image = Shaped(8, 1, 1);
  const float inf = std::numeric_limits<float>::infinity();
  const float values[8] = {100.0f, 100.1f, 0.0f, -0.1f, std::numeric_limits<float>::quiet_NaN(), inf, -inf, 49.99f};
  Fill(image, [&](int, int x, int) { return values[x]; });
  int hist[2];
  image.GetHistogram(hist, 2, 0.0, 100.0, -1, 0, 1, 0, nullptr, 0, 0);
  EXPECT_EQ(hist[0], 2);
  EXPECT_EQ(hist[1], 1);
  // No width at all: what is counted falls into bin 0.
  image.GetHistogram(hist, 2, 100.0, 100.0, 0, 0, 1, 0, nullptr, 0, 0);
  EXPECT_EQ(hist[0], 1);
  EXPECT_EQ(hist[1], 0);
  image.GetHistogram(hist, 2, 100.0, 0.0, 0, 0, 1, 0, nullptr, 0, 0);
  EXPECT_EQ(hist[0] + hist[1], 0);
  // Unbounded limits must not turn into an index.
  image.GetHistogram(hist, 2, -static_cast<double>(inf), static_cast<double>(inf), 0, 0, 1, 0, nullptr, 0, 0);
  EXPECT_EQ(hist[0] + hist[1], 7);
  image.GetHistogram(hist, 2, 0.0, 100.0, 5, 0, 1, 0, nullptr, 0, 0);
  EXPECT_EQ(hist[0] + hist[1], 0) << "a plane that isn't there";
  EXPECT_EQ(image.GetHistogram(hist, 0, 0.0, 1.0, 0, 0, 1, 0, nullptr, 0, 0), 0);
}

TEST(Histogram, HeightsAndLogarithms) {
  CVynImage image = Shaped(100, 100, 1);
  Fill(image, [](int, int x, int y) { return y == 0 && x < 10 ? 1.0f : y == 1 && x < 1 ? 2.0f : 3.0f; });
  int hist[256];
  EXPECT_EQ(image.GetHistogram(hist, 256, 0.0, 256.0, 0, 0, 0, 0, nullptr, 0, 0), 78);
  EXPECT_EQ(image.GetHistogram(hist, 256, 0.0, 256.0, 0, 1, 1, 0, nullptr, 0, 0), hist[3]);
  EXPECT_EQ(hist[0], INT_MIN);
  EXPECT_EQ(hist[1], 10000);
  EXPECT_EQ(hist[2], 0);
  EXPECT_EQ(hist[3], static_cast<int>(std::log10(9989.0) * 10000.0));
}

TEST(Histogram, SparseGridIsScaledUpAndShiftedByTheLeft) {
  CVynImage image = Shaped(10, 8, 3);
  Fill(image, [](int, int x, int) { return static_cast<float>(x); });
  image.SetHistogramCull({0, 2, 4, 9}, {1, 6});
  const CRect rect(1, 3, 4, 5);
  int hist[10];
  const auto run = [&] {
    image.GetHistogram(hist, 10, 0.0, 10.0, 0, 0, 1, 1, &rect, 0, 0);
    return std::vector<int>(hist, hist + 10);
  };
  // Columns 1, 3 and 5 of both rows; column 10 lies outside. Each bin is 2 * 80 / 6.
  EXPECT_EQ(run(), (std::vector<int>{0, 26, 0, 26, 0, 26, 0, 0, 0, 0}));
  int g[10], b[10];
  image.GetHistogramRGB(hist, g, b, 10, 0.0, 10.0, nullptr, nullptr, 0, 1, 1, &rect, 0, 0);
  EXPECT_EQ(std::vector<int>(g, g + 10), (std::vector<int>{20, 0, 20, 0, 20, 0, 0, 0, 0, 20}));
  // Columns that the image no longer has are no samples.
  CVynImage small;
  small.CopyImage(image);
  small.ChangeSize(5, 8);
  Fill(small, [](int, int x, int) { return static_cast<float>(x); });
  small.GetHistogramRGB(hist, g, b, 10, 0.0, 10.0, nullptr, nullptr, 0, 1, 1, nullptr, 0, 0);
  EXPECT_EQ(std::vector<int>(g, g + 10), (std::vector<int>{13, 0, 13, 0, 13, 0, 0, 0, 0, 0}));
  // A grid of as many columns and rows as the image counts as none.
  image.SetHistogramCull({0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, {0, 1, 2, 3, 4, 5, 6, 7});
  EXPECT_EQ(run(), (std::vector<int>{0, 2, 2, 2, 0, 0, 0, 0, 0, 0}));
}

TEST(Histogram, ReportsOneUnitARow) {
  const Threads one(1);
  RecordingWindow window;
  CVynImage image = Shaped(4, 6, 3);
  image.SetProgressHandle(&window);
  int hist[3][4];
  for (const auto& [message, title] : {std::pair(0, L"ヒストグラム計算中..."), {6167, L"自動レベル設定値計算中..."}}) {
    window.events.clear();
    image.GetHistogram(hist[0], 4, 0.0, 1.0, 0, 0, 1, 0, nullptr, 1, message);
    ASSERT_FALSE(window.events.empty());
    EXPECT_EQ(window.events.front().text, title);
    EXPECT_EQ(window.Percents().size(), 6u);
    EXPECT_EQ(window.events.back().code, kProgressEnd);
  }
  ASSERT_TRUE(image.ChangePlanes(1));
  window.events.clear();
  EXPECT_EQ(image.GetHistogramRGB(hist[0], hist[1], hist[2], 4, 0.0, 1.0, nullptr, nullptr, 0, 1, 0, nullptr, 1, 0),
            -1);
  EXPECT_TRUE(window.events.empty());
}

}  // namespace
}  // namespace qmr::test
