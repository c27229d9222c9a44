// Matching a template: scores against the pixel readers, the search against a trial of all positions, and stars whose
// places are known to a fraction of a pixel.
#include "qmrimg/stacking/matching.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include "qmrimg/stacking/alignment.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"
#include "tests/support/stars.h"

namespace qmr::test {
namespace {

constexpr double kNone = 3.402823466e38;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

double SlowScore(const CVynImage& object, const CVynImage& pattern, double x, double y, const double* ratios) {
  double sum = 0.0, count = 0.0;
  for (int p = 0; p < std::min(object.GetPlanes(), pattern.GetPlanes()); ++p) {
    for (int py = 0; py < object.GetHeight(); ++py) {
      for (int px = 0; px < object.GetWidth(); ++px) {
        if (px < x || px >= std::floor(x) + pattern.GetWidth()) continue;
        if (py < y || py >= std::floor(y) + pattern.GetHeight()) continue;
        const float product = pattern.GetPixelGrayRaw(px - x, py - y, p) * static_cast<float>(ratios[p]);
        const double difference = At(object, p, px, py) - product;
        sum += difference * difference;
        ++count;
      }
    }
  }
  return count > 0 ? sum / count : kNone;
}

// The best of all positions, none given up; and how many units of the report that takes.
struct Found {
  double x, y, score;
  int units;
};
Found SlowSearch(CImgMatching& object, CVynImage& pattern, double x, double y, int range, bool subPixel) {
  double ratios[3];
  for (int p = 0; p < 3; ++p) ratios[p] = object.GetAvrGrayRaw(p) / pattern.GetAvrGrayRaw(p);
  Found best = {x, y, kNone, 0};
  const auto grid = [&](auto x0, auto x1, auto y0, auto y1, auto step, int units, Found centre) {
    for (auto py = y0; py <= y1; py += step) {
      for (auto px = x0; px <= x1; px += step) {
        if (px == centre.x && py == centre.y) continue;
        best.units += units;
        const double score = object.CalcValue(&pattern, px, py, ratios);
        if (score < best.score) best = {static_cast<double>(px), static_cast<double>(py), score, best.units};
      }
    }
  };
  const auto whole = [](double v) { return static_cast<int>(v); };
  const int half = range / 2;
  grid(whole(x - half), whole(x + half), whole(y - half), whole(y + half), 2, 1, {kNaN, kNaN, 0.0, 0});
  if (!(best.score < kNone)) return best;
  grid(whole(best.x) - 1, whole(best.x) + 1, whole(best.y) - 1, whole(best.y) + 1, 1, 1, best);
  if (!subPixel) return best;
  for (const auto& [reach, step] : {std::pair{0.6, 0.3}, {0.19999999999999998, 0.1}})
    grid(best.x - reach, best.x + reach, best.y - reach, best.y + reach, step, 6, best);
  return best;
}

TEST(Matching, ScoresOfAwkwardSizes) {
  double ratios[] = {0.7, 1.3, 2.1};
  const std::tuple<int, int, int, int> sizes[] = {{1, 1, 1, 1}, {1, 7, 1, 3},  {7, 1, 2, 1},     {2, 2, 2, 2},
                                                  {3, 3, 9, 9}, {13, 9, 5, 4}, {300, 5, 290, 3}, {640, 500, 610, 480}};
  for (const auto& [w, h, tw, th] : sizes) {
    const double places[][2] = {
        {0, 0},      {-1, 0},     {w - 1.0, h - 1.0}, {1.0 - tw, 1.0 - th},   {1.0 * w - tw, 1.0 * h - th},
        {0.3, -0.6}, {-0.9, 0.1}, {1e-17, 0.5},       {w - tw + 0.7, h - 1.0}};
    for (const auto& [planes, patternPlanes] : {std::pair{1, 1}, {3, 3}, {1, 3}, {2, 3}}) {
      auto object = Noise<CImgMatching>(w, h, planes, 1);
      auto pattern = Noise(tw, th, patternPlanes, 2);
      for (const auto& [x, y] : places) {
        const double expected = SlowScore(object, pattern, x, y, ratios);
        EXPECT_EQ(object.CalcValue(&pattern, x, y, ratios), expected) << w << " x " << h << ": " << x << ", " << y;
        if (x != std::floor(x) || y != std::floor(y)) continue;
        const auto whole = [&, x = static_cast<int>(x), y = static_cast<int>(y)](int threads) {
          const Threads use(threads);
          return object.CalcValue(&pattern, x, y, ratios);
        };
        EXPECT_NEAR(whole(1), expected, expected * 1e-12) << w << " x " << h << ": " << x << ", " << y;
        EXPECT_EQ(whole(1), whole(3));
      }
    }
  }
}

TEST(Matching, FindsWhatATrialOfAllPositionsFinds) {
  struct Case {
    int planes, width, height, patternPlanes, range;
    double x, y;
    bool flat = false, hole = false;
  };
  const Case cases[] = {{1, 12, 9, 1, 20, 9.7, 8.2},      {3, 12, 9, 3, 13, -5.5, 20.4},
                        {3, 12, 9, 1, 8, 30.0, 25.0},     {2, 12, 9, 2, 8, 3.0, 4.0, false, true},
                        {1, 60, 50, 1, 30, -10.0, -10.0}, {1, 12, 9, 1, 12, 10.0, 10.0, true},
                        {1, 40, 30, 1, 1, 0.0, 0.0},      {1, 12, 9, 1, -6, 10.0, 10.0},
                        {1, 12, 9, 1, 6, 200.0, 10.0}};
  for (const Case& c : cases) {
    // Each plane has an exposure of its own.
    const CVynImage noise = Noise(40, 30, c.planes, 5);
    auto object = Shaped<CImgMatching>(40, 30, c.planes);
    Fill(object, [&](int p, int x, int y) { return At(noise, p, x, y) * static_cast<float>(1 + 4 * p); });
    CVynImage pattern = Noise(c.width, c.height, c.patternPlanes, 6);
    // All positions alike: the first one counts.
    if (c.flat) {
      Fill(object, [](int, int, int) { return 3.0f; });
      Fill(pattern, [](int, int, int) { return 7.0f; });
    }
    if (c.hole) object.SetPixelGrayRaw(8, 8, kInfinity, 1);
    for (const bool subPixel : {false, true}) {
      const Found slow = SlowSearch(object, pattern, c.x, c.y, c.range, subPixel);
      for (const int threads : {1, 2, 5}) {
        const Threads use(threads);
        RecordingWindow window;
        object.SetProgressHandle(&window);
        double x = c.x, y = c.y;
        EXPECT_EQ(object.Do(&pattern, &x, &y, c.range, subPixel, 1), slow.score < kNone);
        EXPECT_EQ(std::pair(x, y), std::pair(slow.x, slow.y)) << c.planes << " " << c.range << " " << threads;
        EXPECT_EQ(window.events.front().text, L"画像マッチング処理中...");
        EXPECT_EQ(window.events.back().code, kProgressEnd);
        // More may be done than was announced. The last post may be 2 % old.
        if (threads > 1 || slow.units == 0) continue;
        EXPECT_NEAR(window.Percents().back(), slow.units * 100.0 / (c.range * c.range / 4 + 9 + subPixel * 288), 2.0);
      }
    }
  }
}

TEST(Matching, OddArguments) {
  auto object = Noise<CImgMatching>(8, 6, 1, 1);
  auto pattern = Noise(3, 2, 1, 2);
  double ratio = 1.0;
  constexpr int kFar = std::numeric_limits<int>::max();
  for (const auto& [x, y] : {std::pair{8, 0}, {-3, 0}, {0, 6}, {0, -2}, {kFar, 0}, {-kFar - 1, kFar}}) {
    EXPECT_EQ(object.CalcValue(&pattern, x, y, &ratio), kNone) << x << " " << y;
    EXPECT_EQ(object.CalcValue(&pattern, static_cast<double>(x), static_cast<double>(y), &ratio), kNone);
  }
  double x = 100.5, y = -3.25;
  CVynImage empty, black = Shaped(3, 2, 1);
  EXPECT_EQ(object.CalcValue(&empty, 0, 0, &ratio), kNone);
  EXPECT_EQ(object.CalcValue(nullptr, 0, 0, &ratio), kNone);
  EXPECT_EQ(object.CalcValue(&pattern, 0.5, 0.5, nullptr), kNone);
  EXPECT_EQ(object.Do(nullptr, &x, &y, 10, 1, 0), 0);
  EXPECT_EQ(object.Do(&pattern, &x, nullptr, 10, 1, 0), 0);
  // A mean of 0 gives no ratio.
  EXPECT_EQ(object.Do(&black, &x, &y, 300, 1, 0), 0);
  EXPECT_EQ(std::pair(x, y), std::pair(100.5, -3.25));
  // Nobody waits for billions of positions beyond the object.
  EXPECT_EQ(object.Do(&pattern, &x, &y, kFar, 1, 1), 1);
  for (const double far : {kNaN, 1e300, -1e300, kFar + 0.0}) {
    EXPECT_EQ(object.CalcValue(&pattern, far, 0.0, &ratio), kNone);
    x = y = far;
    EXPECT_EQ(object.Do(&pattern, &x, &y, 10, 1, 0), std::isnan(far));
  }
  // Both kinds of score tell a pixel that is no number.
  pattern.SetPixelGrayRaw(1, 0, std::numeric_limits<float>::quiet_NaN(), 0);
  EXPECT_TRUE(std::isnan(object.CalcValue(&pattern, 1, 1, &ratio)));
  EXPECT_TRUE(std::isnan(object.CalcValue(&pattern, 1.2, 1.0, &ratio)));
  EXPECT_TRUE(CAlignment::GetEngString(4).IsEmpty() && CAlignment::GetString(-1).IsEmpty());
  EXPECT_EQ(CAlignment::GetString(3), CString(L"画像マッチング(並進のみ)"));
}

TEST(Matching, FindsStarsToATenthOfAPixel) {
  for (const std::uint64_t seed : {1u, 2u}) {
    const std::vector<Star> field = StarField(300.0, seed);
    const CVynImage sky = SkyFrame(190, 150, field, {}, 1.0, seed + 20, 3.0);
    auto object = Shaped<CImgMatching>(190, 150, 1);
    const float exposure = 0.4f * static_cast<float>(seed);
    Fill(object, [&](int, int x, int y) { return exposure * At(sky, 0, x, y); });
    for (const auto& [dx, dy] : {std::pair{0.0, 0.0}, {0.3, 0.7}, {0.5, 0.5}, {-0.42, 0.18}, {3.86, -5.24}}) {
      CVynImage pattern = SkyFrame(140, 100, field, {dx, dy}, 1.0, seed + 10, 3.0);
      double x = 26.0, y = 24.0;
      ASSERT_EQ(object.Do(&pattern, &x, &y, 20, 1, 0), 1);
      // The middles lie on one another where nothing moves. A tenth is the last step.
      EXPECT_NEAR(x, 25.0 - dx, 0.1) << seed;
      EXPECT_NEAR(y, 25.0 - dy, 0.1) << seed;
    }
  }
}

}  // namespace
}  // namespace qmr::test
