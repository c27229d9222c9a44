#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "qmrimg/raw/dark.h"
#include "qmrimg/raw/flat.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// `image` with every pixel replaced by `value(p, x, y)`.
CVynImage Expected(const CVynImage& image, const std::function<float(int, int, int)>& value) {
  CVynImage expected(image);
  Fill(expected, value);
  return expected;
}

float Bent(float value, float high, float low, double gamma) {
  const float span = high - low;
  return static_cast<float>(std::pow(static_cast<double>((value - low) / span), gamma) * span + low);
}

float Flattened(float v, float f, float average, float pedestal) {
  const float divisor = average * pedestal + f;
  if (divisor > 0.0f) v = v * average / divisor;
  return v;
}

TEST(Calibration, DarkNeverGoesBelowZero) {
  for (const int darkPlanes : {1, 3}) {
    CVynImage image = Noise(37, 9, 3, 1);
    CVynImage dark = Noise(37, 9, darkPlanes, 2);
    image.SetPixelGrayRaw(3, 2, At(dark, darkPlanes - 1, 3, 2), 2);
    image.SetPixelGrayRaw(4, 2, kNan, 2);
    const CVynImage expected = Expected(image, [&](int p, int x, int y) {
      const float d = At(image, p, x, y) - At(dark, darkPlanes == 1 ? 0 : p, x, y);
      return d > 0.0f ? d : 0.0f;
    });
    image.DarkClbrtn(&dark, 0);
    EXPECT_TRUE(SamePixels(expected, image));
    EXPECT_EQ(At(image, 2, 3, 2), 0.0f);
    EXPECT_EQ(At(image, 2, 4, 2), 0.0f);
  }
}

TEST(Calibration, ShortFlatUsesTheMeanOfPlane0ForAllPlanes) {
  CVynImage image = Noise(19, 11, 3, 1);
  CVynImage flat = Noise(19, 11, 3, 2, 50.0, 100.0);
  flat.SetPixelGrayRaw(0, 0, 0.0f, 1);
  flat.SetPixelGrayRaw(1, 0, -4.0f, 1);
  flat.SetPixelGrayRaw(2, 0, kNan, 1);
  const float average = flat.GetAvrGrayRaw(0);
  const CVynImage expected = Expected(
      image, [&](int p, int x, int y) { return Flattened(At(image, p, x, y), At(flat, p, x, y), average, 0.0f); });
  image.FlatClbrtn(&flat, 0);
  EXPECT_TRUE(SamePixels(expected, image));
}

// With its own levels, the single step is that of the pass for both frames. A plane without contrast switches the flat
// off for itself and all later planes.
TEST(Calibration, FullFlatTakesEachPlanesLevels) {
  for (const int constant : {-1, 0, 1, 2}) {
    for (const int planes : {1, 3}) {
      for (const double gamma : {-1.0, 0.7, 2.2}) {
        const CVynImage image = Noise(19, 11, 3, 1), level = Noise(19, 11, planes, 2, -20.0, 100.0);
        CVynImage flat(level), full(image), both(image);
        Fill(flat, [&](int p, int x, int y) { return p == constant ? 7.0f : At(level, p, x, y); });
        full.FlatClbrtn(&flat, 0.3f, gamma, 0);
        flat.CalcMinMax();
        float min[3], max[3], average[3];
        for (int p = 0; p < 3; ++p) {
          const int q = std::min(p, planes - 1);
          min[p] = flat.GetMinPixel(q);
          max[p] = flat.GetMaxPixel(q);
          average[p] = flat.GetAvrGrayRaw(q);
        }
        both.DarkFlat(&both, nullptr, &flat, min, max, average, 0.3f, gamma, nullptr, 0);
        EXPECT_TRUE(SamePixels(both, full)) << constant << " " << planes << " " << gamma;
        if (planes == 1) continue;
        for (int p = 0; p < 3; ++p)
          EXPECT_EQ(Pixels(full, p) != Pixels(image, p), constant < 0 || p < constant) << p << " " << constant;
      }
    }
  }
}

TEST(Calibration, DarkAndFlatInOnePass) {
  CVynImage src = Noise(45, 13, 3, 1);
  CVynImage dark = Noise(45, 13, 1, 2, 0.0, 120.0);
  CVynImage flat = Noise(45, 13, 3, 3, -10.0, 90.0);
  src.SetPixelGrayRaw(7, 4, kNan, 1);
  flat.SetPixelGrayRaw(8, 4, kNan, 1);
  float min[3] = {1.0f, 2.0f, 3.0f};
  float max[3] = {80.0f, 81.0f, 82.0f};
  float average[3] = {41.0f, 42.0f, 43.0f};
  CRect rect(3, 2, 40, 60);
  for (int frames = 0; frames < 4; ++frames) {
    for (const double gamma : {-1.0, 0.0, 0.7, 1.7}) {
      const float pedestal = 0.25f;
      CVynImage image = Noise(45, 13, 3, 9);
      const CVynImage expected = Expected(image, [&](int p, int x, int y) {
        if (x < 3 || x >= 40 || y < 2) return At(image, p, x, y);
        float v = At(src, p, x, y);
        if (frames & 1) {
          v = v - At(dark, 0, x, y);
          if (!(v > 0.0f)) v = 0.0f;
        }
        if (frames & 2) {
          const auto low = static_cast<float>(max[p] - 2.0 * static_cast<double>(max[p] - min[p]));
          float f = At(flat, p, x, y);
          float a = average[p];
          if (gamma > 0.0) {
            f = Bent(f, max[p], low, gamma);
            a = Bent(a, max[p], low, gamma);
          }
          v = Flattened(v, f, a, pedestal);
        }
        return v;
      });
      image.DarkFlat(&src, frames & 1 ? &dark : nullptr, frames & 2 ? &flat : nullptr, min, max, average, pedestal,
                     gamma, &rect, 0);
      EXPECT_TRUE(SamePixels(expected, image)) << frames << " " << gamma;
    }
  }
  EXPECT_TRUE(SameForAllThreads([&] {
    CVynImage image(src);
    image.DarkFlat(&src, &dark, &flat, min, max, average, 0.1f, 1.3, nullptr, 0);
    return Bytes(image);
  }));
}

// A frame counts as covering only what it has.
TEST(Calibration, SmallFramesLeaveTheRestAlone) {
  CVynImage image = Shaped(12, 8, 3);
  CVynImage frame = Shaped(7, 5, 2);
  Fill(image, [](int, int, int) { return 10.0f; });
  Fill(frame, [](int, int x, int) { return x == 0 ? 2.0f : 4.0f; });
  CVynImage darkened(image);
  darkened.DarkClbrtn(&frame, 0);
  EXPECT_TRUE(SamePixels(
      Expected(image, [](int p, int x, int y) { return p < 2 && x < 7 && y < 5 ? x == 0 ? 8.0f : 6.0f : 10.0f; }),
      darkened));
  float levels[2] = {2.0f, 2.0f};
  float high[2] = {4.0f, 4.0f};
  CVynImage both(image);
  both.DarkFlat(&image, &frame, &frame, levels, high, levels, 0.0f, 0.0, nullptr, 0);
  EXPECT_TRUE(SamePixels(
      Expected(image, [](int p, int x, int y) { return p < 2 && x < 7 && y < 5 ? x == 0 ? 8.0f : 3.0f : 10.0f; }),
      both));
  both.FlatClbrtn(nullptr, 0.0f, 0.0, 0);
  both.FlatClbrtn(nullptr, 0);
  both.DarkClbrtn(nullptr, 0);
  both.DarkFlat(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0.0f, 0.0, nullptr, 0);
}

TEST(Calibration, ReportsCarryTheirMessages) {
  CVynImage image = Noise(8, 10, 1, 1, 1.0, 2.0), frame(image);
  float level = 1.0f;
  CRect rect(0, 4, 8, 6);
  const std::pair<std::wstring, std::function<void()>> cases[] = {
      {L"ダーク補正処理中...", [&] { image.DarkClbrtn(&frame, 1); }},
      {L"フラット補正処理中...", [&] { image.FlatClbrtn(&frame, 1); }},
      {L"フラット補正処理中...", [&] { image.FlatClbrtn(&frame, 0.0f, 0.0, 1); }},
      {L"ダーク／フラット補正処理中...",
       [&] { image.DarkFlat(&frame, nullptr, nullptr, &level, &level, &level, 0.0f, 0.0, &rect, 1); }}};
  const Threads one(1);
  for (const auto& [title, run] : cases) {
    RecordingWindow window;
    image.SetProgressHandle(&window);
    run();
    ASSERT_FALSE(window.events.empty());
    EXPECT_EQ(window.events.front().text, title);
    EXPECT_EQ(window.Percents().size(), &run == &cases[3].second ? 2u : 10u);
    EXPECT_EQ(window.Percents().back(), 100);
    EXPECT_EQ(window.events.back().code, kProgressEnd);
    image.SetProgressHandle(nullptr);
  }
}

TEST(Dark, BlendsOfTwoFrames) {
  CImgDark first = Noise<CImgDark>(21, 6, 2, 1);
  CVynImage second = Noise(21, 6, 2, 2);
  const auto blended = [&](const std::function<double(double, double)>& blend) {
    return Expected(
        first, [&](int p, int x, int y) { return static_cast<float>(blend(At(first, p, x, y), At(second, p, x, y))); });
  };
  const auto made = [&](const std::function<void(CImgDark&)>& make) {
    CImgDark image(first);
    make(image);
    return CVynImage(image);
  };

  // a at 3/4 of the way, b at 1/2.
  EXPECT_TRUE(SamePixels(
      blended([](double d1, double d2) { return (d2 - d1) * 0.75 + d1 + (d2 - d1) * 0.5; }),
      made([&](CImgDark& d) { d.DoInterpolateByProportion(&second, -10.0, -6.0, -7.0, 60.0, 120.0, 90.0, 0); })));
  // The nearer of 60 and 120 to 80 is 60; to 90, the tie, 120. Only b3 is divided.
  EXPECT_TRUE(SamePixels(
      blended([](double d1, double d2) { return (d2 - d1) * 0.25 + d1 + d1 * std::pow(2.0, 6.0 - 8.0 / 1.25); }),
      made([&](CImgDark& d) { d.DoInterpolateByPower(&second, 0.0, 4.0, 1.0, 6.0, 12.0, 8.0, 1.25, 0); })));
  EXPECT_TRUE(SamePixels(
      blended([](double d1, double d2) { return (d2 - d1) * 0.25 + d1 + d1 * std::pow(2.0, 12.0 - 9.0 / 0.75); }),
      made([&](CImgDark& d) { d.DoInterpolateByPower(&second, 0.0, 4.0, 1.0, 6.0, 12.0, 9.0, 0.75, 0); })));
  for (const double score : {-1.0, 0.5, 3.0}) {
    EXPECT_TRUE(SamePixels(blended([&](double d1, double d2) {
                             const double m = (d2 - d1) * (score / 2.0) + d1;
                             return m > d2 ? d2 : d1 > m ? d1 : m;
                           }),
                           made([&](CImgDark& d) { d.DoInterpolateByScore(&second, score, 0.0, 2.0, 0); })))
        << score;
  }
  // A zero divisor runs through to the pixels.
  const CVynImage broken =
      made([&](CImgDark& d) { d.DoInterpolateByProportion(&second, 1.0, 1.0, 2.0, 0.0, 1.0, 0.0, 0); });
  EXPECT_TRUE(std::isinf(At(broken, 0, 0, 0)));
}

// Values, coordinates and modes against the formulas written out.
class FlatModels : public testing::TestWithParam<int> {
 protected:
  FlatModels() {
    Shape(source, 40, 25, 3);
    FillNoise(source, 4, -3.0, 300.0);
    source.CalcMinMax();
    Shape(image, 40, 25, 3);
    FillNoise(image, 5);
  }

  // `value` and `less` give the model and a sample less the variation, `level` and `reference` R and L of plane p.
  void Check(const std::function<double(int, int, int)>& value,
             const std::function<double(double, int, int, int)>& less, const std::function<double(int)>& level,
             const std::function<double(int)>& reference) {
    const CVynImage expected = Expected(image, [&](int p, int x, int y) {
      if (x < rect.left || x >= rect.right || y < rect.top || y >= rect.bottom) return At(image, p, x, y);
      const double s = At(source, p, x, y);
      if (mode == 0) return static_cast<float>(less(s, p, x, y));
      if (mode != 1) return 0.0f;
      double c = -std::min<double>(source.GetMinPixel(p), reference(p));
      if (c == 0.0) c = 1.0;
      return static_cast<float>((level(p) + c) / (value(p, x, y) + c) * (s + c) - c);
    });
    make();
    EXPECT_TRUE(SamePixels(expected, image)) << "mode " << mode;
  }

  const int mode = GetParam();
  CRect rect{2, 3, 31, 22};
  CVynImage source;
  CImgFlat image;
  std::function<void()> make;
};

TEST_P(FlatModels, LineThroughTwoPoints) {
  // A slope with dx < 0, a vertical pair downwards, and two equal points.
  CPoint from[3] = {{30, 5}, {9, 2}, {8, 70000}};
  CPoint to[3] = {{10, 18}, {9, 12}, {8, 70000}};
  double slope[3] = {1.5, -0.75, 2.0};
  double base[3] = {100.0, 50.0, 20.0};
  double lowest[3] = {-20.0, 40.0, 0.0};
  const double k = 13.0 / -20.0;
  const double dirX[3] = {-1.0 * std::sqrt(1.0 / (k * k + 1.0)), 0.0, 0.0};
  const double dirY[3] = {dirX[0] * k, 1.0, -1.0};
  // The third middle is 70000 in 16 bits.
  const double mid[3] = {11.0, 7.0, 4464.0};
  const auto t = [&](int p, int x, int y) { return x * dirX[p] + y * dirY[p] - mid[p]; };
  make = [&] { image.DoFlat(&source, from, to, slope, base, lowest, mode, &rect, 0); };
  Check([&](int p, int x, int y) { return slope[p] * t(p, x, y) + base[p]; },
        [&](double s, int p, int x, int y) { return s - slope[p] * t(p, x, y); }, [&](int p) { return base[p]; },
        [&](int p) { return lowest[p]; });
}

TEST_P(FlatModels, Plane) {
  double gradX[3] = {0.5, -0.25, 0.0};
  double gradY[3] = {1.5, 0.125, 3.0};
  double constant[3] = {10.0, 20.0, 30.0};
  double lowest[3] = {5.0, -10.0, 0.0};
  make = [&] { image.DoFlatPoint(&source, gradX, gradY, constant, lowest, mode, &rect, 0); };
  Check([&](int p, int x, int y) { return gradX[p] * x + gradY[p] * y + constant[p]; },
        [&](double s, int p, int x, int y) { return s - (gradX[p] * x + gradY[p] * y); },
        [&](int p) { return constant[p]; }, [&](int p) { return lowest[p]; });
}

TEST_P(FlatModels, Parabola) {
  CPoint centre[3] = {{20, 12}, {-5, 40}, {0, 0}};
  double curve[3] = {-0.25, 0.5, 0.0};
  double peak[3] = {200.0, -30.0, 5.0};
  double lowest[3] = {-50.0, 0.0, 1.0};
  const auto square = [&](int p, int x, int y) {
    return static_cast<double>((x - centre[p].x) * (x - centre[p].x) + (y - centre[p].y) * (y - centre[p].y));
  };
  make = [&] { image.DoParabolic(&source, centre, curve, peak, lowest, mode, &rect, 0); };
  Check([&](int p, int x, int y) { return curve[p] * square(p, x, y) + peak[p]; },
        [&](double s, int p, int x, int y) { return s - curve[p] * square(p, x, y); }, [&](int p) { return peak[p]; },
        [&](int p) { return curve[p] >= 0.0 ? peak[p] : lowest[p]; });
}

TEST_P(FlatModels, Paraboloid) {
  double curve[3] = {-0.25, 0.5, 0.0};
  double gradX[3] = {3.0, -4.0, 1.0};
  double gradY[3] = {2.0, 5.0, 0.5};
  double constant[3] = {200.0, -30.0, 5.0};
  double lowest[3] = {-50.0, 0.0, 1.0};
  const double vertex[3] = {200.0 - 13.0 * 0.25 / -0.25, -30.0 - 41.0 * 0.25 / 0.5, 0.0};
  const auto z = [&](int p, int x, int y) {
    return curve[p] * (x * x + y * y) + gradX[p] * x + gradY[p] * y + constant[p];
  };
  make = [&] { image.DoParabolicPoint(&source, curve, gradX, gradY, constant, lowest, mode, &rect, 0); };
  Check(
      z, [&](double s, int p, int x, int y) { return s - z(p, x, y) + vertex[p]; }, [&](int p) { return vertex[p]; },
      [&](int p) { return curve[p] >= 0.0 ? vertex[p] : lowest[p]; });
}

INSTANTIATE_TEST_SUITE_P(Modes, FlatModels, testing::Values(0, 1, 2));

// With the smallest pixel and the reference level at 0 the offset is 1, not 0.
TEST(Flat, OffsetIsNeverZero) {
  CVynImage source = Shaped(6, 4, 1);
  CImgFlat image = Shaped<CImgFlat>(6, 4, 1);
  Fill(source, [](int, int x, int) { return static_cast<float>(x); });
  source.CalcMinMax();
  double zero = 0.0;
  double gradX = 1.0;
  image.DoFlatPoint(&source, &gradX, &zero, &zero, &zero, 1, nullptr, 0);
  for (int x = 0; x < 6; ++x) EXPECT_NEAR(At(image, 0, x, 2), 0.0f, 1e-6);
}

}  // namespace
}  // namespace qmr::test
