#include "qmrimg/filters/filter_misc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "qmrimg/filters/filter_block.h"
#include "tests/filters/operation_rules.h"
#include "tests/filters/separable_reference.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

using Filter = CImgFilterMisc;
// An operation with fixed parameters, and what it must make of a pixel; nothing for pixels that it leaves.
using Call = Operation<Filter>;
using Pixel = std::function<std::optional<float>(CVynImage&, int p, int x, int y)>;

// A call with these arguments before source, rectangle and progress.
template <class Member, class... Arguments>
Call With(Member operation, Arguments... arguments) {
  return [=](Filter& f, CVynImage* s, CRect* r, int b) { (f.*operation)(arguments..., s, r, b); };
}

constexpr float kInf = std::numeric_limits<float>::infinity();
// Levels 5 + 3p and 210 + 11p.
void ShapeResult(Filter& result, int width, int height, int planes) {
  Shape(result, width, height, planes);
  Fill(result, [](int, int, int) { return kUntouched; });
  for (int p = 0; p < planes; ++p) result.SetLevel(p, 5.0 + 3 * p, 210.0 + 11 * p);
}

// Around 100, half of it in steps of 10, with spikes both ways and, if wanted, special values. Levels 20 + 3p and
// 180 + 11p.
void ShapeSky(CVynImage& image, int width, int height, int planes, bool special = true) {
  Random random(static_cast<std::uint64_t>(width * 100 + height));
  Shape(image, width, height, planes);
  Fill(image, [&](int, int, int) {
    const int kind = random.Integer(0, 59);
    if (special && kind == 0) return std::vector<float>{NAN, 0.0f, -0.0f, kInf, -50.0f}[random.Integer(0, 4)];
    const double fine = random.Uniform(86.0, 114.0), v = kind % 2 ? fine : std::round(fine / 10.0) * 10.0;
    return static_cast<float>(kind < 6 ? v * 3.0 : kind < 10 ? v * 0.2 : v);
  });
  for (int p = 0; p < planes; ++p) image.SetLevel(p, 20.0 + 3 * p, 180.0 + 11 * p);
}

// Compares an operation with its reference over awkward shapes and rectangles, on results of the source's size, smaller
// and larger ones, which have `extra` planes more.
void ExpectAs(const Call& call, const Pixel& reference, int planes, int extra = 0, bool special = true) {
  const struct {
    int grow;
    CRect rect;
  } areas[] = {{0, {-3, -3, 100, 100}}, {3, {5, 6, 40, 99}}, {-2, {3, 1, 12, 8}}, {0, {8, 8, 4, 4}}};
  for (const auto& [width, height] : {std::pair(1, 1), {1, 7}, {7, 1}, {2, 2}, {13, 9}, {70, 50}}) {
    CVynImage source;
    ShapeSky(source, width, height, planes, special);
    for (const auto& [grow, rect] : areas) {
      Filter result;
      ShapeResult(result, std::max(width + grow, 1), std::max(height + grow, 1), planes + extra);
      CVynImage expected(result);
      CRect area = rect;
      Fill(expected, [&](int p, int x, int y) {
        const bool both = x < source.GetWidth() && y < source.GetHeight() && p < planes;
        const bool inside = x >= area.left && x < area.right && y >= area.top && y < area.bottom;
        return both && inside ? reference(source, p, x, y).value_or(kUntouched) : kUntouched;
      });
      call(result, &source, &area, 0);
      ASSERT_TRUE(SamePixels(expected, result)) << width << " x " << height << ", from " << area.left;
    }
  }
}

// ---- Raw frames ------------------------------------------------------------------------------------------------

int Reflected(int i, int size) {
  i = std::abs(i);
  return std::clamp(i >= size ? 2 * size - i - 2 : i, 0, size - 1);
}

bool SecondOpinion(const CVynImage& image, int x, int y, int pattern, bool hot, double threshold) {
  float sum[2] = {}, count[2] = {};
  for (int dy = -2; dy <= 2; ++dy) {
    for (int dx = -2; dx <= 2; ++dx) {
      const int ring = std::max(std::abs(dx), std::abs(dy)) - 1;
      // Honeycomb: the near corners, and of the far ring what is even both ways.
      if (ring < 0 || (pattern >= 11 && ((dx + ring) % 2 == 0 || (dy + ring) % 2 == 0))) continue;
      sum[ring] += At(image, 0, Reflected(x + dx, image.GetWidth()), Reflected(y + dy, image.GetHeight()));
      ++count[ring];
    }
  }
  const double d = std::fabs(static_cast<double>((sum[0] / count[0]) / (sum[1] / count[1])) - 1.0);
  return hot ? !(d > 1.0 - threshold) : d > threshold;
}

// The colours by their rules: Bayer greens are one colour of the chessboard; honeycomb samples are the odd one, green
// in every second row.
std::optional<float> CfaPixel(CVynImage& source, int x, int y, int pattern, double cool, double hot) {
  const bool bayer = pattern < 11;
  if (!bayer && (x + y) % 2 == 0) return std::nullopt;
  const bool green = bayer ? (x + y) % 2 == (pattern % 2 == 1 ? 1 : 0) : y % 2 == (pattern <= 12 ? 1 : 0);
  CFilterMatrix cross;
  cross.SetCfaCross(green ? 1 : 0, bayer);
  CFilterBlock block(&source, cross.GetRadius(), 0, y, 0, 2);
  const float pixel = At(source, 0, x, y), high = block.GetSorted(&cross, x, 3), low = block.GetSorted(&cross, x, 0);
  if (low > pixel && std::fabs(static_cast<double>(low / pixel) - 1.0) > cool)
    return SecondOpinion(source, x, y, pattern, false, cool) ? low : pixel;
  if (pixel > high && std::fabs(static_cast<double>(high / pixel) - 1.0) > hot)
    return SecondOpinion(source, x, y, pattern, true, hot) ? high : pixel;
  return pixel;
}

TEST(CfaNoiseCut, ComparesPixelsOfOneColour) {
  // Pixels of 100 among those of 110 and of 90 are on the limits.
  constexpr double kCool = static_cast<double>(110.0f / 100.0f) - 1.0, kHot = 1.0 - static_cast<double>(90.0f / 100.0f);
  for (const int pattern : {1, 2, 3, 4, 11, 12, 13, 14}) {
    for (const int on : {1, 2, 3}) {
      SCOPED_TRACE(testing::Message() << pattern << ", " << on);
      const double cool = on & 1 ? kCool : kInf, hot = on & 2 ? kHot : kInf;
      ExpectAs(
          With(&Filter::CFANoiseCut, pattern, on & 1, kCool, on & 2, kHot),
          [=](CVynImage& s, int, int x, int y) { return CfaPixel(s, x, y, pattern, cool, hot); }, 1);
    }
  }
  CVynImage source;
  ShapeSky(source, 9, 9, 3);
  for (const auto& [pattern, planes] : {std::pair(0, 1), {5, 1}, {10, 1}, {15, 1}, {1, 3}}) {
    Filter result;
    ShapeResult(result, 9, 9, planes);
    result.CFANoiseCut(pattern, 1, 0.0, 1, 0.0, &source, nullptr, 0);
    EXPECT_EQ(Pixels(result, 0), std::vector<float>(81, kUntouched)) << pattern;
  }
}

TEST(CompareArea, MirrorsAndSurvivesAnyPlace) {
  CVynImage source, empty;
  ShapeSky(source, 8, 6, 1, false);
  Filter misc;
  for (int i = 0; i < 4 * 2 * 48; ++i) {
    const int pattern = std::vector<int>{1, 10, 11, 99}[i / 96], x = i % 8, y = i / 8 % 6;
    const bool hot = i / 48 % 2 == 1, expected = SecondOpinion(source, x, y, pattern, hot, hot ? 0.9 : 0.1);
    ASSERT_EQ(misc.CompareArea(&source, x, y, pattern, hot, hot ? 0.9 : 0.1), expected ? 1 : 0) << pattern << ", " << i;
  }
  // All pixels clamped to one; no pixels at all.
  EXPECT_EQ(misc.CompareArea(&source, INT_MAX, INT_MIN, 1, 1, 0.5), 1);
  EXPECT_EQ(misc.CompareArea(&empty, 0, 0, 1, 1, 0.5), 0);
  EXPECT_EQ(misc.CompareArea(nullptr, 0, 0, 1, 1, 0.5), 0);
}

// ---- Background ------------------------------------------------------------------------------------------------

TEST(BkgSmooth, SmoothsWhatIsNotAboveTheLevel) {
  double level[3] = {100.0, 103.0, 1e9}, buffer[3] = {10.0, 0.0, -20.0}, sigma[3] = {1.0, 2.0, 0.0};
  std::vector<float> smooth;
  std::vector<int> smoothOf;
  const Pixel reference = [&](CVynImage& source, int p, int x, int y) -> std::optional<float> {
    // There are engines for three planes.
    if (p == 3) return std::nullopt;
    const std::vector<int> wanted = {p, source.GetWidth(), source.GetHeight()};
    if (std::exchange(smoothOf, wanted) != wanted) {
      CFilterMatrix gaussian;
      gaussian.SetGaussianSigma(sigma[p]);
      smooth = SeparableReference(source, p, CentreRow(gaussian, true));
    }
    const float c = At(source, p, x, y), high = static_cast<float>(level[p]);
    if (c > high) return c;
    const float f = std::min(smooth[static_cast<std::size_t>(y * source.GetWidth() + x)], high);
    const float width = static_cast<float>(buffer[p] / 255.0 * (205.0 + 8.0 * p));
    const float t = (c - (high - width)) / width;
    return c > high - width ? f * (1.0f - t) + t * c : f;
  };
  // Both kernels are Gaussians.
  for (const auto& [kernelType, planes, extra] : {std::tuple(0, 4, 0), {1, 2, 1}}) {
    smoothOf.clear();
    ExpectAs(With(&Filter::BkgSmooth, level, buffer, kernelType, sigma, 3.0), reference, planes, extra, false);
  }
}

// ---- False colour ----------------------------------------------------------------------------------------------

TEST(FalseColorCut, ReplacesTheLargestChannel) {
  // Ratios around 1, so that noise falls in, out and, with equal channels, on a bound; ties go to the first channel.
  const int ratios[][4] = {{10, 9, 8, 0}, {9, 10, 8, 1}, {8, 9, 10, 2}, {9, 9, 9, 0}, {8, 9, 9, 1}, {0, 9, 9, 1}};
  for (const auto& [r, g, b, excess] : ratios) {
    for (const double strength : {1.0, 0.4}) {
      const double wantG = static_cast<double>(g) / r, wantB = static_cast<double>(b) / r;
      const int e = excess;
      ExpectAs(
          With(&Filter::FalseColorCut, r, g, b, 0.1, strength),
          [=](CVynImage& source, int p, int x, int y) {
            const double v[3] = {At(source, 0, x, y), At(source, 1, x, y), At(source, 2, x, y)};
            const auto near = [](double v, double want) { return v > want - want * 0.1 && v < want + want * 0.1; };
            const bool hit = near(v[1] / v[0], wantG) && near(v[2] / v[0], wantB);
            const double mean = (v[(p + 1) % 3] + v[(p + 2) % 3]) * 0.5;
            return static_cast<float>((1.0 - strength) * v[p] + strength * (hit && p == e ? mean : v[p]));
          },
          3, 1);
    }
  }
}

// ---- Guiding errors and kernels of the user's own --------------------------------------------------------------

float Convolved(CVynImage& source, CFilterMatrix& matrix, int p, int x, int y) {
  CFilterBlock block(&source, matrix.GetRadius(), 0, y, p, 2);
  return block.Convolve(&matrix, x);
}

TEST(GuideErrorCanceller, MixesInTheLineFilter) {
  for (const auto& [length, mix, radius] : {std::tuple(4.3, 0.7, 5), {0.2, -1.5, 1}, {2.0, 0.0, 2}}) {
    const double m = mix;
    CFilterMatrix kernel;
    kernel.SetLine(radius, length, 30.0, 1.2);
    ExpectAs(
        With(&Filter::GuideErrorCanceller, length, 30.0, 1.2, m),
        [&, m](CVynImage& source, int p, int x, int y) {
          const float filtered = Convolved(source, kernel, p, x, y);
          return static_cast<float>(At(source, p, x, y) * (1.0 - m) + static_cast<float>(filtered * m));
        },
        2, 1, false);
  }
}

TEST(Custom, EachPlaneHasItsKernelAndItsLimits) {
  double blur[9] = {1, 2, 1, 2, 4, 2, 1, 2, 3}, gain[1] = {1.5}, edge[25] = {0.5, -1, 2, 3, 1, -2};
  for (double& v : blur) v /= 18.0;
  edge[12] = 0.75;
  // The last two planes have no kernel.
  int radius[5] = {1, 0, 2, 1, -1}, minOn[5] = {1, 0, 1}, maxOn[5] = {1, 1, 0}, brighterOn[5] = {1, 0, 1};
  double* kernel[5] = {blur, gain, edge, nullptr, edge};
  double min[5] = {115.0, 0.0, 100.0}, minBuf[5] = {10.0, 0.0, 50.0}, max[5] = {130.0, 140.0}, maxBuf[5] = {100.0, 5.0};
  // Every value from 0 on acts in full; a negative one increases the darkening.
  double brighter[5] = {0.0, 0.0, -40.0};
  const Pixel limited = [&](CVynImage& source, int p, int x, int y) -> std::optional<float> {
    if (p > 2) return std::nullopt;
    const float c = At(source, p, x, y);
    const auto raw = [p](double v) { return static_cast<float>(v / 255.0 * (160.0 + 8.0 * p) + 20.0 + 3.0 * p); };
    const float a = minOn[p] ? raw(min[p]) : -FLT_MAX, b = minOn[p] ? raw(min[p] - minBuf[p]) : -FLT_MAX;
    const float top = maxOn[p] ? raw(max[p]) : FLT_MAX, end = maxOn[p] ? raw(max[p] + maxBuf[p]) : FLT_MAX;
    if (!(c >= b && c <= end)) return c;
    CFilterMatrix matrix(radius[p], kernel[p], 0);
    float f = Convolved(source, matrix, p, x, y);
    const float t = c < a ? (c - b) / (a - b) : (end - c) / (end - top);
    if (c < a || c > top) f = (1.0f - t) * c + t * f;
    // In the other order the ramp would round differently.
    const float share = brighter[p] < 0.0 ? static_cast<float>(brighter[p] / 100.0) : 1.0f;
    return brighterOn[p] && f < c ? f + (c - f) * share : f;
  };
  ExpectAs(
      [&](Filter& f, CVynImage* s, CRect* r, int b) {
        f.Custom(radius, kernel, minOn, min, minBuf, maxOn, max, maxBuf, brighterOn, brighter, s, r, b);
      },
      limited, 5);
  ExpectAs([&](Filter& f, CVynImage* s, CRect* r,
               int b) { f.Custom(1, blur, 1, 115.0, 10.0, 1, 130.0, 100.0, 1, 0.0, s, r, b); },
           limited, 1);
  CFilterMatrix plain(2, edge, 0);
  ExpectAs([&](Filter& f, CVynImage* s, CRect* r, int b) { f.Custom(2, edge, s, r, b); },
           [&](CVynImage& s, int p, int x, int y) { return Convolved(s, plain, p, x, y); }, 2, 1);
}

// ---- Contours --------------------------------------------------------------------------------------------------

TEST(ContourFilter, ScoresSixteenSamplesAroundAPixel) {
  for (const auto& [planes, levels, noClamp] : {std::tuple(1, 16, 0), {3, 7, 1}, {3, -3, 0}, {1, INT_MAX, 1}}) {
    const float count = static_cast<float>(std::max(levels, 2));
    const int free = noClamp;
    const auto level = [=](CVynImage& source, double sx, double sy) {
      float v = source.GetPixelBright256f(static_cast<int>(sx), static_cast<int>(sy)) * (count / 255.0f);
      if (!free) v = v > count ? count : v < 0.0f ? 0.0f : v;
      return v == v ? static_cast<int>(std::clamp(static_cast<double>(v), -2147483648.0, 2147483647.0)) : 0;
    };
    ExpectAs(
        With(&Filter::ContourFilter, levels, noClamp),
        [&](CVynImage& source, int p, int x, int y) {
          int grid[4][4];
          double sy = y - 0.666666;
          for (int j = 0; j < 4; ++j, sy += 0.333333) {
            double sx = x - 0.666666;
            for (int i = 0; i < 4; ++i, sx += 0.333333) grid[j][i] = level(source, sx, sy);
          }
          float sum = 0.0f;
          for (int k = 0; k < 9; ++k) {
            const int *upper = grid[k / 3] + k % 3, *lower = grid[k / 3 + 1] + k % 3;
            sum += 255.0f * static_cast<float>((upper[0] != upper[1]) + (lower[0] != lower[1]) +
                                               (upper[1] != lower[0]) + (upper[0] != lower[1]));
          }
          return static_cast<float>(sum * 0.11111111f * ((205.0 + 8.0 * p) / 255.0) + (5.0 + 3.0 * p));
        },
        planes);
  }
}

// ---- All of them -----------------------------------------------------------------------------------------------

TEST(CorrectiveFilters, KeepTheRulesOfAllOperations) {
  double kernel[9] = {0, 1, 0, 1, -3, 1, 0, 1, 0};
  double level[3] = {100.0, 105.0, 95.0}, width[3] = {10.0, 5.0, 0.0}, sigma[3] = {1.0, 3.0, 2.0};
  const struct {
    const wchar_t* title;
    int planes;
    // Units of the report of rows 5 to 39; raw frames begin at row 4.
    int units;
    Call call;
  } cases[] = {
      {L"ホット／クールピクセル除去処理中...", 1, 72, With(&Filter::CFANoiseCut, 2, 1, 0.05, 1, 0.1)},
      {L"ホット／クールピクセル除去処理中...", 1, 72, With(&Filter::CFANoiseCut, 13, 1, 0.05, 1, 0.1)},
      {L"バックグウンドスムース処理中...", 3, 105, With(&Filter::BkgSmooth, level, width, 0, sigma, 1.0)},
      {L"青ハロ・偽色除去処理中...", 3, 105, With(&Filter::FalseColorCut, 9, 9, 10, 0.4, 0.8)},
      {L"ガイドエラー補正処理中...", 3, 105, With(&Filter::GuideErrorCanceller, 5.0, 20.0, 1.0, 0.5)},
      {L"カスタムフィルター処理中...", 3, 105,
       [&](Filter& f, CVynImage* s, CRect* r, int b) { f.Custom(1, kernel, s, r, b); }},
      {L"等光度曲線検出中...", 3, 35, With(&Filter::ContourFilter, 12, 0)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << &c - cases);
    CVynImage source;
    ShapeSky(source, 45, 40, c.planes);
    ExpectOperationRules<Filter>(source, c.title, c.units, [&](Filter& result, CVynImage* from, CRect* rect, int b) {
      c.call(result, from, rect, b);
      result.ClearFilterProc();
    });
  }
  // A background kernel that there is not leaves its report open.
  Filter result;
  ShapeResult(result, 8, 8, 1);
  RecordingWindow window;
  result.SetProgressHandle(&window);
  result.BkgSmooth(level, width, 2, sigma, 1.0, &result, nullptr, 1);
  EXPECT_EQ(window.events.size(), 1u);
  EXPECT_EQ(Pixels(result, 0), std::vector<float>(64, kUntouched));
}

}  // namespace
}  // namespace qmr::test
