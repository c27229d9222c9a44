#include "qmrimg/levels/tone_curve.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>
#include <vector>

#include "qmrimg/levels/reduce_tone.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using namespace qmr::test;

class Curve : public CImgToneCurve {
 public:
  using CImgToneCurve::CalcToneCurve;
  using CImgToneCurve::CalcToneNormal;
};

// Four tables of n entries, rising and falling, some of them beyond 0..1.
struct Tables {
  explicit Tables(int n) {
    Random random(static_cast<std::uint64_t>(n));
    for (int t = 0; t < 4; ++t) {
      for (int i = 0; i < n; ++i) entries[t].push_back(static_cast<float>(random.Uniform(-0.1, 1.1)));
      pointers[t] = entries[t].data();
    }
  }
  std::vector<float> entries[4];
  float* pointers[4];
};

TEST(ToneCurve, LookupsGoOnBeyondTheTable) {
  Curve curve;
  float table[] = {0.0f, 0.5f, 0.75f};
  EXPECT_EQ(curve.CalcToneCurve(table, 2, -0.001), 0.0);
  // From level 191.25, not from input 255, with slope (0.75 - 0.5) * 2.
  EXPECT_EQ(curve.CalcToneCurve(table, 2, 300.0), (300.0 - 191.25) * 0.5 + 191.25);
  float flat[] = {0.0f, 0.5f, 0.5f};
  float falling[] = {0.0f, 0.75f, 0.5f};
  for (float* end : {flat, falling}) EXPECT_EQ(curve.CalcToneCurve(end, 2, 300.0), 127.5);
  EXPECT_EQ(curve.CalcToneCurve(flat + 1, 0, 300.0), 127.5);
  EXPECT_EQ(curve.CalcToneCurve(table, -1, 300.0) + curve.CalcToneCurve(nullptr, 2, 300.0), 0.0);
  EXPECT_EQ(curve.CalcToneNormal(127.4, 2 / 255.0, table, 2), 0.0);
  EXPECT_EQ(curve.CalcToneNormal(127.5, 2 / 255.0, table, 2), 127.5);
  for (const double factor : {2 / 255.0, 1e9}) EXPECT_EQ(curve.CalcToneNormal(255.0, factor, table, 2), 191.25);
}

TEST(ToneCurve, FollowsTheFormulasOnEveryShape) {
  struct Size {
    int width, height, planes, n;
  };
  const Size sizes[] = {{1, 1, 1, 256},   {7, 1, 3, 2},       {1, 7, 1, 1},    {13, 9, 3, 7},
                        {70, 50, 3, 256}, {1100, 3, 1, 1000}, {13, 9, 2, 256}, {13, 9, 4, 256}};
  for (const Size& size : sizes) {
    Tables tables(size.n);
    CVynImage source;
    Shape(source, size.width, size.height, size.planes);
    FillNoise(source, 3, -500.0, 4500.0);
    source.SetPixelGrayRaw(0, 0, NAN, 0);
    source.SetPixelGrayRaw(size.width - 1, 0, INFINITY, size.planes - 1);
    CRect rect(-3, size.height / 4, std::max(1, size.width - 2), size.height + 5);
    EXPECT_TRUE(SameForAllThreads([&] {
      Curve image;
      Shape(image, size.width, size.height, size.planes);
      FillNoise(image, 4);
      for (int p = 0; p < size.planes; ++p) image.SetLevel(p, 100.1 + p, 4000.0 - 7.0 * p);
      CVynImage expected(image);
      const int last = size.n - 1;
      for (int p = 0; p < std::min(size.planes, 3); ++p) {
        const float min = static_cast<float>(image.GetLevelMin(p));
        const double scale = 255.0 / static_cast<float>(image.GetLevelRange(p));
        for (int y = rect.top; y < size.height; ++y) {
          for (int x = 0; x < rect.right; ++x) {
            double t = (At(source, p, x, y) - min) * scale;
            if (size.planes > 1) t = image.CalcToneNormal(t, last / 255.0, tables.pointers[p + 1], last);
            t = image.CalcToneNormal(t, last / 255.0, tables.pointers[0], last);
            expected.SetPixelGrayRaw(x, y, static_cast<float>(t / scale + min), p);
          }
        }
      }
      image.Do(tables.pointers, size.n, &source, &rect, 0, 0);
      EXPECT_TRUE(SamePixels(expected, image)) << size.width << " x " << size.height << " x " << size.planes;
      return Bytes(image);
    }));
  }
}

TEST(ToneCurve, TheLevelMaximumTakesTheLastEntryForEveryRange) {
  // The rounded scale misses 255 for a third of the ranges; beyond 255 this curve would give 191.
  float ramp[256];
  for (int i = 0; i < 256; ++i) ramp[i] = static_cast<float>(i) / 510.0f;
  float* tables[] = {ramp};
  CImgToneCurve image;
  Shape(image, 1, 1, 1);
  for (int range = 1; range < 1000; ++range) {
    image.SetLevel(0, 0.0, range);
    image.SetPixelGrayRaw(0, 0, static_cast<float>(range), 0);
    image.Do(tables, 256, &image, nullptr, 0, 0);
    ASSERT_FLOAT_EQ(At(image, 0, 0, 0), static_cast<float>(range) / 2.0f);
  }
}

TEST(ToneCurve, WhatIsMissingIsLeftAlone) {
  Tables tables(256);
  CImgToneCurve image;
  Shape(image, 9, 100, 3);
  FillNoise(image, 5);
  const CVynImage before(image);
  CVynImage small;
  Shape(small, 5, 4, 1);
  RecordingWindow window;
  image.SetProgressHandle(&window);
  float* some[] = {tables.pointers[0], tables.pointers[1], nullptr, tables.pointers[3]};
  image.Do(nullptr, 256, &small, nullptr, 1, 0);
  image.Do(tables.pointers, 0, &small, nullptr, 1, 0);
  image.Do(tables.pointers, 256, nullptr, nullptr, 1, 0);
  image.Do(some, 256, &small, nullptr, 1, 0);
  EXPECT_TRUE(window.events.empty());
  EXPECT_TRUE(SamePixels(before, image));

  const Threads one(1);
  CRect rect(0, 0, 9, 30);
  for (const int hAlpha : {0, 1}) {
    window.events.clear();
    image.Do(tables.pointers, 256, &small, &rect, 1, hAlpha);
    EXPECT_EQ(window.events.front().text, hAlpha ? L"Hα画像補正処理中..." : L"トーンカーブ調整処理中...");
    EXPECT_EQ(window.Percents().back(), 28);  // 90 of 300 rows, counted in steps of 6
    EXPECT_EQ(window.events.back().code, qmr::kProgressEnd);
  }
  EXPECT_NE(At(before, 0, 4, 3), At(image, 0, 4, 3));
  for (const auto& [p, x, y] : {std::tuple{0, 5, 3}, {0, 4, 4}, {1, 4, 3}})
    EXPECT_EQ(At(before, p, x, y), At(image, p, x, y));
}

TEST(HAlpha, RedGoesThroughTheCurveTwice) {
  CImgToneCurve image;
  Shape(image, 256, 1, 3);
  Fill(image, [](int, int x, int) { return static_cast<float>(x); });
  // Below level 102 the input is halved; at the knee the identity takes over.
  image.DoHAlpha(0.4, 0.2, &image, nullptr, 0);
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(At(image, p, 100, 0), p == 0 ? 25.0f : 50.0f);
    for (int x = 102; x < 256; ++x) EXPECT_EQ(At(image, p, x, 0), static_cast<float>(x));
  }
  for (const double knee : {0.0, -3.0, 2.0, 1e300, static_cast<double>(NAN)}) {
    CImgToneCurve gray;
    Shape(gray, 1, 1, 1);
    gray.SetPixelGrayRaw(0, 0, 200.0f, 0);
    gray.DoHAlpha(knee, 1.0, &gray, nullptr, 0);
    EXPECT_EQ(At(gray, 0, 0, 0), knee == 2.0 ? 100.0f : knee == 1e300 ? 0.0f : 200.0f) << knee;
  }
  CVynImage source;
  Shape(source, 4, 4, 3);
  Fill(source, [](int p, int x, int y) { return static_cast<float>(10 + 100 * p + x + 4 * y); });
  image.DoHAlphaLevel(1.5, &source);
  for (int p = 0; p < 3; ++p) EXPECT_TRUE(image.GetLevelMin(p) == 10.0 && image.GetLevelMax(p) == 37.5);
}

TEST(ReduceTone, StepsOfTheLevels) {
  CVynImage source;
  Shape(source, 530, 9, 3);
  FillNoise(source, 7, -20.0, 300.0);
  const float values[] = {255.0f, INFINITY, -INFINITY};
  for (int x = 0; x < 3; ++x) source.SetPixelGrayRaw(x, 0, values[x], 0);
  for (const int tones : {-5, 0, 1, 3, 16, 255, 256, 300}) {
    CImgReduceTone image;
    Shape(image, 530, 9, 3);
    image.SetLevel(2, 10.1, 205.3);
    CVynImage expected(image);
    const int steps = std::clamp(tones, 1, 256);
    Fill(expected, [&](int p, int x, int y) {
      const double min = image.GetLevelMin(p), scale = 255.0 / image.GetLevelRange(p);
      const double t = std::clamp((At(source, p, x, y) - min) * scale, 0.0, 255.0);
      const double q = std::floor(t * 0.00390625 * steps);
      return static_cast<float>(q / steps * 255.0 / scale + min);
    });
    image.Do(tones, &source, nullptr, 0);
    EXPECT_TRUE(SamePixels(expected, image)) << tones;
    EXPECT_TRUE(tones != 3 || At(image, 0, 0, 0) == 170.0f);
    image.SetPixelGrayRaw(0, 0, NAN, 0);
    image.Do(tones, &image, nullptr, 0);
    EXPECT_TRUE(std::isnan(At(image, 0, 0, 0)));
    image.SetLevel(0, 5.0, 5.0);
    image.Do(tones, &image, nullptr, 0);  // a range of 0: whatever comes out, nothing breaks
  }
}

}  // namespace
