#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "qmrimg/filters/filter_special.h"
#include "qmrimg/platform/debug_output.h"
#include "tests/filters/separable_reference.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

constexpr float kUntouched = -7.0f;

// The caller's side of a development.
struct Arguments {
  double level[1] = {1300.0};
  double radius[3] = {1.5, 0.8, 2.4};
  double gamma[3] = {1.0, 1.0, 1.0};
  int maskPlane[3] = {0, 1, 2};
  float gammaMin[3] = {kUntouched, kUntouched, kUntouched};
  float gammaSpan[3] = {kUntouched, kUntouched, kUntouched};
  float offset[3] = {kUntouched, kUntouched, kUntouched};
  float multiplier[3] = {kUntouched, kUntouched, kUntouched};

  void First(CImgFilterSpecial& image, CVynImage& source, int gammaAfter = 0, int kernelType = 0, double weight = 1.0) {
    source.CalcMinMax();
    image.DigitalDvlp1(level, kernelType, radius, weight, gamma, 3, &source, gammaMin, gammaSpan, offset, multiplier,
                       gammaAfter);
  }
  void Second(CImgFilterSpecial& image, CVynImage& source, bool gammaFirst, int develop = 1, CRect* rect = nullptr,
              int progress = 0) {
    const auto step = gammaFirst ? &CImgFilterSpecial::DigitalDvlp2 : &CImgFilterSpecial::DigitalDvlpGmAftrDdp;
    (image.*step)(develop, gamma, &source, maskPlane, gammaMin, gammaSpan, offset, multiplier, rect, progress);
  }
};

void Prepare(CVynImage& image, int width, int height, int planes) {
  Shape(image, width, height, planes);
  for (int p = 0; p < planes; ++p) static_cast<CImage&>(image).SetLevel(p, 900.5 + 50.0 * p, 2000.3 + 77.7 * p);
  Fill(image, [](int, int, int) { return kUntouched; });
}

float Curve(float v, float exponent, float low, float span) {
  if (v - low <= 0.0f) return v;
  const float base = (v - low) / span;
  return static_cast<float>(std::pow(static_cast<double>(base), static_cast<double>(exponent))) * span + low;
}

// One pixel, step by step, from the masks of the three planes.
float Developed(const CVynImage& image, const Arguments& a, bool gammaFirst, int develop, int p, float s,
                const float (&mask)[3]) {
  const float g = static_cast<float>(1.0 / a.gamma[p]);
  float min[3], scale[3];
  for (int i = 0; i < 3; ++i) {
    min[i] = static_cast<float>(image.GetLevelMin(i));
    scale[i] = static_cast<float>(255.0 / image.GetLevelRange(i));
  }
  const auto bend = [&](float v) { return g == 1.0f ? v : Curve(v, g, a.gammaMin[p], a.gammaSpan[p]); };
  if (!develop) return gammaFirst ? bend(s) : s;
  const int i = a.maskPlane[p];
  double y = 0.0;
  if (i < 3)
    y = (mask[i] - min[i]) * scale[i];
  else
    y = ((mask[1] - min[1]) * scale[1] + (mask[0] - min[0]) * scale[0] + (mask[2] - min[2]) * scale[2]) / 3.0;
  float raw = static_cast<float>(y / 255.0 * image.GetLevelRange(p) + image.GetLevelMin(p));
  if (gammaFirst) raw = bend(raw);
  const float divisor = (raw - min[p]) * scale[p] + a.offset[p];
  if (gammaFirst) {
    const float v = bend(s);
    if (!(divisor > 0.0f)) return v;
    return ((v - min[p]) * scale[p]) / divisor * a.multiplier[p] / scale[p] + min[p];
  }
  float r = (s - min[p]) * scale[p];
  if (divisor > 0.0f) r = r / divisor * a.multiplier[p];
  if (g != 1.0f) r = Curve(r, g, 0.0f, 255.0f);
  return static_cast<float>(r / 255.0 * image.GetLevelRange(p) + image.GetLevelMin(p));
}

struct Case {
  int width, height;
  double gamma[3];
  int maskPlane[3];
  int develop;
};

TEST(DigitalDevelopment, FollowsItsStepsPixelByPixel) {
  const Case cases[] = {{1, 1, {1.0, 1.0, 1.0}, {0, 1, 2}, 1},   {1, 7, {2.0, 1.0, 0.7}, {0, 1, 2}, 1},
                        {7, 1, {1.0, 2.2, 1.0}, {3, 3, 3}, 1},   {2, 2, {1.8, 1.8, 1.8}, {2, 0, 1}, 1},
                        {70, 50, {2.0, 1.5, 1.0}, {1, 9, 1}, 1}, {31, 4, {2.0, 1.5, 1.0}, {1, 3, 1}, 0},
                        {1100, 5, {1.0, 2.0, 3.0}, {0, 3, 3}, 1}};
  for (const Case& c : cases) {
    for (const bool gammaFirst : {true, false}) {
      CVynImage expected;
      CVynImage source = Shaped(c.width, c.height, 3);
      // Some masks fall below the black level, and some divisors below zero.
      FillNoise(source, 3, 300.0, 2500.0);
      CRect rect(c.width > 3 ? 2 : -4, -3, c.width > 20 ? c.width - 5 : c.width + 9, std::max(c.height - 2, 1));
      EXPECT_TRUE(SameForAllThreads([&] {
        CImgFilterSpecial image, inPlace;
        Arguments a;
        std::copy_n(c.gamma, 3, a.gamma);
        std::copy_n(c.maskPlane, 3, a.maskPlane);
        for (CImgFilterSpecial* to : {&inPlace, &image}) {
          Prepare(*to, c.width, c.height, 3);
          if (to == &inPlace) to->PixelBlt(0, 0, c.width, c.height, &source, 0, 0, 0);
          CVynImage& from = to == &inPlace ? inPlace : source;
          a.First(*to, from, !gammaFirst);
          a.offset[1] = -60.0f;
          a.offset[2] = 90.0f;
          a.Second(*to, from, gammaFirst, c.develop, &rect);
        }
        std::vector<float> masks[3];
        for (int i = 0; i < 3; ++i) {
          CFilterMatrix matrix;
          matrix.SetGaussianSigma(a.radius[i]);
          masks[i] = SeparableReference(source, i, CentreRow(matrix, true));
        }
        Shape(expected, c.width, c.height, 3);
        const auto fill = [&](const CVynImage& outside) {
          Fill(expected, [&](int p, int x, int y) {
            const auto i = static_cast<std::size_t>(y * c.width + x);
            if (x < rect.left || x >= rect.right || y >= rect.bottom) return At(outside, p, x, y);
            return Developed(image, a, gammaFirst, c.develop, p, At(source, p, x, y),
                             {masks[0][i], masks[1][i], masks[2][i]});
          });
        };
        fill(source);
        EXPECT_TRUE(SamePixels(expected, inPlace)) << "in place, " << c.width << ", gamma first " << gammaFirst;
        CVynImage untouched;
        Prepare(untouched, c.width, c.height, 3);
        fill(untouched);
        EXPECT_TRUE(SamePixels(expected, image)) << c.width << ", gamma first " << gammaFirst;
        return Bytes(image);
      }));
    }
  }
}

TEST(DigitalDevelopment, FirstStepMakesConstantsAndMasks) {
  // Large enough for a median of blocks: those of 2 x 2 pixels are flat, single pixels are not.
  CVynImage source = Shaped(600, 400, 3);
  Fill(source, [](int p, int x, int y) { return (x + y) % 2 ? 1000.0f : 1400.0f + 10 * p; });
  for (const int gammaAfter : {0, 1}) {
    for (const int kernelType : {1, 2, -1}) {
      CImgFilterSpecial image;
      Prepare(image, 600, 400, 3);
      Arguments a;
      a.radius[0] = 2.5;
      a.gamma[0] = 2.0;
      a.First(image, source, gammaAfter, kernelType, 0.25);
      const auto scaled = [&](float v) {
        if (!gammaAfter) v = Curve(v, 0.5f, a.gammaMin[0], a.gammaSpan[0]);
        return static_cast<float>((v - 900.5) / (2000.3 - 900.5) * 255.0);
      };
      // Of an unknown kernel nothing is made.
      const bool made = kernelType == 1;
      for (int p = 0; p < 3; ++p) {
        EXPECT_EQ(a.offset[p], made ? scaled(1300.0f) : kUntouched);
        EXPECT_EQ(a.multiplier[p], made ? scaled(1300.0f) + scaled(1200.0f) : kUntouched);
        EXPECT_EQ(a.gammaMin[p] == kUntouched || a.gammaSpan[p] == kUntouched, !made);
      }
      // The disc's centre row weighs 1 1 4 1 1: of a chequered 8 x 8 square, centre and even steps against odd ones.
      EXPECT_NEAR(image.CalcFilterProc(300, 200, 0), made ? 1000.0 + 400.0 * (6.0 * 6.0 + 2.0 * 2.0) / 64.0 : 0.0,
                  1e-3);
    }
  }
}

TEST(DigitalDevelopment, RangeFollowsTheModeAndThePlanesAndCarriesLevels) {
  struct Row {
    int planes, mode;
    std::vector<float> min, max;
  };
  // -3 is what came in. On three planes the places on the 256-scale are carried over.
  const Row rows[] = {{3, 4, {-3, -3, -3}, {-3, -3, -3}},         {3, 0, {0, -105, -2025}, {255, 150, -750}},
                      {3, 1, {51, -54, -1770}, {255, 150, -750}}, {3, 2, {51, -54, -1770}, {510, 405, 525}},
                      {3, 3, {5, -100, -2000}, {255, 150, -750}}, {2, 3, {5, -3, -3}, {255, -3, -3}},
                      {4, 0, {0, -3, -3}, {255, -3, -3}}};
  CVynImage source;
  CImgFilterSpecial image;
  const double low[] = {5.0, -100.0, -2000.0, 0.0}, range[] = {255.0, 255.0, 1275.0, 1.0};
  for (const Row& row : rows) {
    Shape(source, 2, 1, row.planes);
    Fill(source, [](int p, int x, int) { return static_cast<float>(51 + 204 * x + 1000 * p); });
    source.CalcMinMax();
    static_cast<CImage&>(source).SetLevel(0, 10.0, 510.0);
    Shape(image, 2, 1, row.planes);
    for (int p = 0; p < row.planes; ++p) static_cast<CImage&>(image).SetLevel(p, low[p], low[p] + range[p]);
    std::vector<float> min(3, -3.0f), max(3, -3.0f), span(3), difference(3);
    image.DigitalDvlpGetMinMax(row.mode, &source, min.data(), max.data(), span.data());
    std::transform(max.begin(), max.end(), min.begin(), difference.begin(), std::minus<float>());
    EXPECT_EQ(min, row.min) << row.planes << " planes, mode " << row.mode;
    EXPECT_EQ(max, row.max) << row.planes << " planes, mode " << row.mode;
    EXPECT_EQ(span, difference);
  }
  // A curve from 0 to 255. Levels that stay keep all digits of a double.
  const double levels[][5] = {{1.0, 10.1, 60.1, 10.1, 60.1},
                              {2.0, 15.9375, 63.75, 63.75, 127.5},
                              {2.0, -5.1, 63.75, -5.1, 127.5},
                              {2.0, -5.1, -0.1, -5.1, -0.1},
                              {2.0, 10.1, 255.1, 10.1, 255.1}};
  for (const auto& [gamma, lowIn, highIn, lowOut, highOut] : levels) {
    double gammas[] = {gamma, 1.0, 1.0}, lows[] = {lowIn, 0.1, 0.1}, highs[] = {highIn, 0.2, 0.2};
    image.DigitalDvlpGetLevel(gammas, 0, &source, lows, highs);
    EXPECT_EQ(std::vector<double>(lows, lows + 3), std::vector<double>({lowOut, 0.1, 0.1}));
    EXPECT_EQ(std::vector<double>(highs, highs + 3), std::vector<double>({highOut, 0.2, 0.2}));
  }
}

TEST(DigitalDevelopment, MissingMasksPlanesAndPixelsAreLeftOut) {
  for (const int planes : {1, 2, 3, 4}) {
    for (const int mask : {std::numeric_limits<int>::min(), 2, 3}) {
      CVynImage source = Noise(12, 9, planes, 7, 1000.0, 2500.0);
      CVynImage small = Noise(10, 7, 3, 8, 1000.0, 2500.0);
      CImgFilterSpecial image, bare, cut;
      for (CImgFilterSpecial* to : {&image, &bare, &cut}) Prepare(*to, 12, 9, planes);
      Arguments a;
      std::fill_n(a.maskPlane, 3, mask);
      a.First(image, source);
      a.First(cut, small);
      for (CImgFilterSpecial* to : {&image, &bare, &cut}) a.Second(*to, source, true);
      const bool developed = mask >= 0 && planes >= 3;
      EXPECT_EQ(At(image, 0, 11, 8) != At(source, 0, 11, 8), developed) << planes << " planes, mask " << mask;
      EXPECT_EQ(Pixels(bare, 0), Pixels(source, 0));
      EXPECT_TRUE(planes < 4 || At(image, 3, 0, 0) == kUntouched);
      // The small image's masks end before the row and the column do; as a source it leaves the rest alone.
      EXPECT_EQ(At(cut, 0, 9, 6) != At(source, 0, 9, 6), developed);
      EXPECT_TRUE(At(cut, 0, 10, 6) == At(source, 0, 10, 6) && At(cut, 0, 9, 7) == At(source, 0, 9, 7));
      a.Second(bare, small, false);
      EXPECT_TRUE(At(bare, 0, 9, 6) == At(small, 0, 9, 6) && At(bare, 0, 10, 6) == At(source, 0, 10, 6));
    }
  }
}

TEST(DigitalDevelopment, BadInputIsSafe) {
  CVynImage source, eight, none;
  for (CVynImage* image : {&source, &eight}) Shape(*image, 5, 4, 3);
  ASSERT_TRUE(eight.ChangeBits(8, 0, 0));
  const double limitless = std::numeric_limits<double>::infinity();
  for (const double bad : {std::nan(""), -limitless, 0.0, -1.0, 60.0}) {
    for (CVynImage* from : {&source, &eight, &none}) {
      for (const int kernelType : {0, 1}) {
        CImgFilterSpecial image;
        Prepare(image, 5, 4, 3);
        static_cast<CImage&>(image).SetLevel(1, 8.0, 8.0);
        Arguments a;
        a.level[0] = bad;
        for (double* values : {a.radius, a.gamma}) std::fill_n(values, 3, bad);
        a.First(image, *from, 0, kernelType, bad);
        for (const bool gammaFirst : {true, false}) a.Second(image, *from, gammaFirst);
        EXPECT_EQ(At(image, 2, 4, 3) == kUntouched, from != &source);
      }
    }
  }
}

TEST(DigitalDevelopment, ReportsAndTraces) {
  std::wstring trace;
  SetDebugOutputHook([](const wchar_t* text, void* to) { *static_cast<std::wstring*>(to) += text; }, &trace);
  CVynImage source;
  CImgFilterSpecial image;
  for (CVynImage* to : {&source, static_cast<CVynImage*>(&image)}) Shape(*to, 6, 20, 3);
  RecordingWindow window;
  image.SetProgressHandle(&window);
  const Threads one(1);
  Arguments a;
  a.maskPlane[1] = 3;
  a.First(image, source);
  EXPECT_TRUE(window.events.empty());
  CRect rect(0, 5, 6, 25);
  a.Second(image, source, true, 1, &rect, 1);
  a.Second(image, source, false, 0, &rect, 1);
  SetDebugOutputHook(nullptr, nullptr);
  EXPECT_EQ(trace,
            L"CImgFilterSpecial::DigitalDvlp1\nCImgFilterSpecial::DigitalDvlp2\n"
            L"CImgFilterSpecial::DigitalDvlpGmAftrDdp\n");
  // Two reports of 45 units, a row of a plane each.
  EXPECT_EQ(window.Percents().size(), 90u);
  EXPECT_EQ(window.events.front().text, L"デジタル現像処理中...");
  EXPECT_EQ(window.events.back().code, kProgressEnd);
}

}  // namespace
}  // namespace qmr::test
