// Brightness and contrast, arithmetic with a constant, cut-off, normalisation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "qmrimg/levels/bright.h"
#include "qmrimg/levels/bright_run.h"
#include "qmrimg/levels/calculation.h"
#include "qmrimg/levels/cut_off.h"
#include "qmrimg/levels/expansion.h"
#include "qmrimg/levels/normalize.h"
#include "qmrimg/store/parallel.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using namespace qmr::test;

// A pixel's new value from the source's and the old one.
using Reference = std::function<float(int plane, float s, float d)>;

// Runs the operation over awkward shapes and rectangles, in place too.
template <class Image>
void ExpectPixels(const std::function<void(Image&, CVynImage*, CRect*)>& run, const Reference& reference,
                  double levelMin = 0.1, double levelMax = 61.7) {
  for (const auto& [width, height] : {std::pair{1, 1}, {1, 7}, {7, 1}, {2, 2}, {13, 9}, {70, 5}}) {
    for (CRect rect : {CRect(0, 0, width, height), CRect(3, 1, 99, 4), CRect(-5, -5, 6, 99), CRect(2, 1, 1, 3)}) {
      for (const bool inPlace : {false, true}) {
        CVynImage source;
        Image image;
        Shape(source, width, height, 3);
        Shape(image, width, height, 3);
        FillNoise(source, 5, -20.0, 90.0);
        FillNoise(image, 6);
        const float odd[] = {NAN, -INFINITY, -0.0f, 0.1f, 61.7f, 30.0f};
        for (int i = 0; i < std::min(width, 6); ++i) source.SetPixelGrayRaw(i, height / 2, odd[i], 0);
        for (int p = 0; p < 3; ++p) source.CImage::SetLevel(p, levelMin, levelMax + p);
        if (inPlace) static_cast<CVynImage&>(image) = source;
        CVynImage expected(image);
        Fill(expected, [&](int p, int x, int y) {
          const bool inside = x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom;
          const float old = At(image, p, x, y);
          return inside ? reference(p, At(source, p, x, y), old) : old;
        });
        run(image, inPlace ? &image : &source, &rect);
        ASSERT_TRUE(SamePixels(expected, image))
            << width << " x " << height << " from " << rect.left << ", " << rect.top << (inPlace ? " in place" : "");
      }
    }
  }
}

class PointOperations : public testing::TestWithParam<int> {
 protected:
  PointOperations() { qmr::ForceSimd(GetParam()); }
  ~PointOperations() override { qmr::ForceSimd(-1); }
};
INSTANTIATE_TEST_SUITE_P(PlainAndVector, PointOperations, testing::Values(0, 2));

TEST_P(PointOperations, BrightnessAndContrastOnTheObjectsLevels) {
  float brightness[] = {0.0f, 12.5f, 0.0f};
  float contrast[] = {-0.0f, -33.0f, 256.0f};
  ExpectPixels<CVynImage>(
      [&](CVynImage& image, CVynImage* source, CRect* rect) {
        for (int p = 0; p < 3; ++p) image.CImage::SetLevel(p, -7.3, 40.0 + p);
        qmr::RunBright(image, brightness, contrast, 99.5, source, rect, 0);
      },
      [&](int p, float s, float) {
        if (p == 0) return s;
        const double range = static_cast<float>(47.3 + p);
        const float t = (s - -7.3f) * static_cast<float>(255.0 / range);
        return ((t - 99.5f) * (contrast[p] / 256.0f) + brightness[p] + t) * static_cast<float>(range / 255.0) + -7.3f;
      });

  // By hand: a contrast of 256 doubles the distance from 102.
  CImgBright image;
  Shape(image, 1, 1, 1);
  image.SetPixelGrayRaw(0, 0, 99.0f, 0);
  image.Do(nullptr, contrast + 2, 102.0, &image, nullptr, 0);
  EXPECT_NEAR(At(image, 0, 0, 0), 96.0f, 1e-4);
}

TEST_P(PointOperations, ArithmeticDiffersBetweenTheRoutinesJustWhereItMust) {
  struct Case {
    double value;
    int mode, clamp;
    float (*plain)(float s, float d);
    float (*vector)(float s, float d);
  };
  const auto add = [](float s, float) { return s + 0.1f; };
  const auto subtract = [](float s, float) { return s - 30.3f; };
  const auto clamped = [](float s, float) { return s - 30.3f < 0.0f ? 0.0f : s - 30.3f; };
  const auto multiply = [](float s, float) { return s * -1.7f; };
  const auto divide = [](float s, float) { return s / 3.7f; };
  const auto reciprocal = [](float s, float) { return s * static_cast<float>(1.0 / static_cast<double>(3.7f)); };
  const auto copy = [](float s, float) { return s; };
  const auto nothing = [](float, float d) { return d; };
  for (const Case& c : {Case{0.1, 0, 1, add, add},
                        {30.3, 1, 0, subtract, subtract},
                        {30.3, 1, 1, clamped, clamped},
                        {-1.7, 2, 1, multiply, multiply},
                        {3.7, 3, 1, divide, reciprocal},
                        {1e-60, 3, 0, copy, nothing},
                        {2.0, 4, 0, copy, nothing},
                        {2.0, -1, 0, copy, nothing}}) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << ", clamp " << c.clamp);
    const auto formula = GetParam() ? c.vector : c.plain;
    ExpectPixels<CImgCalculation>(
        [&](auto& image, auto* source, auto* rect) { image.Do(c.value, c.mode, c.clamp, source, rect, 0); },
        [formula](int, float s, float d) { return formula(s, d); });
  }
}

TEST_P(PointOperations, CutOffComparesWithTheFloatLevelsOfTheSource) {
  // Among the pixels are 0.1f, 61.7f and 30.
  for (const auto& [min, max] : {std::pair{0.1, 61.7}, {30.0, 30.0}, {-1e30, 61.699999}}) {
    ExpectPixels<CImgCutOff>([](auto& image, auto* source, auto* rect) { image.Do(source, -500.0f, 600.0f, rect, 0); },
                             [min = static_cast<float>(min), max = max](int p, float s, float) {
                               return s <= min ? -500.0f : s >= static_cast<float>(max + p) ? 600.0f : s;
                             },
                             min, max);
  }
}

TEST(Normalize, FollowsItsFormulasPlaneByPlane) {
  float mean[] = {100.0f, -3.5f, 0.1f};
  float sigma[] = {10.0f, 0.7f, 3.0f};
  for (const auto& [width, height, planes] : {std::tuple{1, 7, 1}, {7, 1, 2}, {13, 9, 3}, {70, 50, 4}}) {
    for (const int what : {1, 2, 3}) {
      CImgNormalize image;
      Shape(image, width, height, planes);
      FillNoise(image, 3, 1000.0, 1001.0);
      CVynImage expected(image);
      for (int p = 0; p < std::min(planes, 3); ++p) {
        double sum = 0.0, squares = 0.0;
        for (const float v : Pixels(image, p)) {
          sum += v;
          squares += static_cast<double>(v) * v;
        }
        const double m = sum / (width * height);
        const double sd = std::sqrt(squares / (width * height) - m * m);
        const double delta = what & 1 ? mean[p] - m : 0.0;
        for (int i = 0; i < width * height; ++i) {
          float v = At(image, p, i % width, i / width);
          if (what & 1) v = static_cast<float>(v + delta);
          if (what & 2) v = static_cast<float>((v - (m + delta)) * (sigma[p] / sd) + (m + delta));
          expected.SetPixelGrayRaw(i % width, i / width, v, p);
        }
      }
      image.Do(&image, what & 1 ? mean : nullptr, what & 2 ? sigma : nullptr, 0);
      ASSERT_TRUE(SamePixels(expected, image)) << width << " x " << height << ", arrays " << what;
    }
  }
  // Flat planes are not written by `sigma` alone; the variance of the first is rounded to below 0.
  for (const float level : {0.3f, 3.0f}) {
    CVynImage source;
    CImgNormalize image;
    Shape(source, 61, 17, 1);
    Fill(source, [level](int, int, int) { return level; });
    Shape(image, 61, 17, 1);
    image.Do(&source, nullptr, sigma, 0);
    EXPECT_EQ(At(image, 0, 60, 16), 0.0f);
    image.Do(&source, mean, sigma, 0);
    EXPECT_NEAR(At(image, 0, 60, 16), 100.0f, 1e-4);
  }
}

// `run` works on a part of an image and reports `units`.
template <class Image>
void ExpectReport(const wchar_t* title, std::size_t units,
                  const std::function<void(Image&, CVynImage*, CRect*, int)>& run) {
  const auto make = [&run](HWND window) {
    CVynImage source;
    Image image;
    Shape(source, 6, 5, 3);
    FillNoise(source, 1);
    Shape(image, 6, 5, 3);
    image.SetProgressHandle(window);
    CRect rect(2, 1, 5, 4);
    run(image, nullptr, &rect, 1);
    run(image, &source, &rect, window ? 1 : 0);
    return Bytes(image);
  };
  EXPECT_TRUE(SameForAllThreads([&] { return make(nullptr); }));
  RecordingWindow window;
  const Threads one(1);
  make(&window);
  ASSERT_EQ(window.events.size(), units + 2);
  EXPECT_EQ(window.events.front().text, title);
  EXPECT_EQ(window.Percents().back(), 100);
  EXPECT_EQ(window.events.back().code, qmr::kProgressEnd);
}

template <class Image>
void ExpectToTouchWhatBothHave(const std::function<void(Image&, CVynImage*, CRect*, int)>& run) {
  CVynImage source, bytes, none;
  Image image;
  Shape(source, 3, 2, 1);
  FillNoise(source, 2);
  Shape(image, 5, 4, 4);
  Fill(image, [](int, int, int) { return 40.0f; });
  bytes.CopyImage(source);
  ASSERT_TRUE(bytes.ChangeBits(8, 0, 0));
  for (CVynImage* from : {&none, &bytes, &source}) {
    EXPECT_EQ(At(image, 0, 2, 1), 40.0f);
    run(image, from, nullptr, 0);
  }
  EXPECT_NE(At(image, 0, 2, 1), 40.0f);
  for (const auto& [p, x, y] : {std::tuple{0, 3, 1}, {0, 2, 2}, {1, 0, 0}}) EXPECT_EQ(At(image, p, x, y), 40.0f);
}

TEST_P(PointOperations, ReportRowsAndTouchOnlyWhatBothImagesHave) {
  float values[] = {3.0f, 0.0f, 20.0f, NAN};
  const auto bright = [&](auto& i, auto* s, auto* r, int b) { i.Do(values, values, 4.0, s, r, b); };
  const auto calculate = [&](auto& i, auto* s, auto* r, int b) { i.Do(3.3, 1, 1, s, r, b); };
  const auto cutOff = [&](auto& i, auto* s, auto* r, int b) { i.Do(s, NAN, 1.0f, r, b); };
  const auto normalize = [&](auto& i, auto* s, auto*, int b) { i.Do(s, values, values, b); };
  ExpectReport<CImgBright>(L"明るさ／コントラスト処理中...", 9, bright);
  ExpectReport<CImgCalculation>(L"演算処理中...", 9, calculate);
  ExpectReport<CImgCutOff>(L"カットオフ処理中...", 9, cutOff);
  ExpectReport<CImgNormalize>(L"ヒストグラム正規化処理中...", 45, normalize);
  ExpectReport<CImgExpansion>(
      L"展開中...", 9, [&](auto& i, auto* s, auto* r, int b) { i.Do(s, 3.0, 2.5, 2.0, 10.0, 20.0, 1.0, 1, r, b); });
  ExpectToTouchWhatBothHave<CImgBright>(bright);
  ExpectToTouchWhatBothHave<CImgCalculation>(calculate);
  ExpectToTouchWhatBothHave<CImgCutOff>(cutOff);
  ExpectToTouchWhatBothHave<CImgNormalize>(normalize);
}

}  // namespace
