#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "qmrimg/filters/filter_block.h"
#include "qmrimg/filters/filter_special.h"
#include "tests/filters/operation_rules.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr int kPlanes = 2;

enum Kind { kEnhance, kEnhance2, kMask, kSmooth };
struct Filter {
  Kind kind;
  int flag;
  // For the smoother, which settings.
  int set = 0;
};
const Filter kFilters[] = {{kEnhance, 0},   {kEnhance, 1},   {kEnhance2, 0},  {kEnhance2, 1},  {kMask, 0},
                           {kMask, 1},      {kSmooth, 0, 0}, {kSmooth, 1, 0}, {kSmooth, 0, 1}, {kSmooth, 1, 1},
                           {kSmooth, 0, 2}, {kSmooth, 1, 2}, {kSmooth, 0, 3}, {kSmooth, 1, 3}};

double sigmas[kPlanes] = {2.0, 0.7}, gains[kPlanes] = {0.4, 2.5}, thresholds[kPlanes] = {0.05, 0.4};
// Discs beyond the map's rows, wider than the image, of the pixel alone and of its own radius.
struct Smoothing {
  double sigma[kPlanes], threshold[kPlanes], disc[kPlanes];
} smoothings[] = {{{1.0, 2.0}, {0.02, 0.3}, {2.0, 3.0}},
                  {{0.4, 1.0}, {0.2, 1.0}, {7.3, 0.0}},
                  {{0.0, 1.2}, {0.6, 2.0}, {1.5, 20.0}},
                  {{0.8, 3.0}, {0.2, kInfinity}, {-1.0, 4.0}}};

void Apply(const Filter& f, CImgFilterSpecial& result, CVynImage* source, CRect* rect, int bProgress) {
  Smoothing& s = smoothings[f.set];
  if (f.kind == kEnhance) result.StarEnhanceFilter(1.5, 0.3, 0.2, f.flag, source, rect, bProgress);
  if (f.kind == kEnhance2) result.StarEnhanceFilter2(sigmas, gains, thresholds, f.flag, source, rect, bProgress);
  if (f.kind == kMask) result.StaryMask(3.0, 1.7, 0.1, f.flag, source, rect, bProgress);
  if (f.kind == kSmooth) result.NebularSmootherFilter(s.sigma, s.threshold, s.disc, f.flag, source, rect, bProgress);
}

// The pixels of a plane after a filter.
using PixelOf = std::function<float(int x, int y)>;

CFilterMatrix Gaussian(double sigma) {
  CFilterMatrix matrix;
  matrix.SetGaussianSigma(sigma);
  return matrix;
}

float Response(const CFilterBlock& block, int x) {
  static const float values[9] = {-1, -1, -1, -1, 8, -1, -1, -1, -1};
  static CFilterMatrix laplacian(1, values, 9);
  return std::fabs(block.Convolve(&laplacian, x));
}

double Limit(const CVynImage& source, int plane, double threshold) {
  return threshold * 256.0 / 255.0 * source.GetLevelRange(plane);
}

// A stage as an image of its own, with `margin` rows above and below those of the first; `from` has `above` of them.
void MakeStage(CVynImage& from, int plane, int above, int radius, int margin, CVynImage& to,
               const std::function<float(CFilterBlock& block, int x, int y)>& stage) {
  const int height = from.GetHeight() - 2 * above;
  Shape(to, from.GetWidth(), height + 2 * margin, 1);
  for (int y = -margin; y < height + margin; ++y) {
    CFilterBlock block(&from, radius, 0, y + above, plane, 2);
    for (int x = 0; x < from.GetWidth(); ++x) to.SetPixelGrayRaw(x, y + margin, stage(block, x, y + above), 0);
  }
}

PixelOf StarPixels(const Filter& f, CVynImage& source, int p) {
  const bool perPlane = f.kind == kEnhance2;
  CFilterMatrix first = Gaussian(f.kind == kEnhance ? 1.5 : 1.0), second = Gaussian(perPlane ? sigmas[p] : 3.0);
  if (f.kind == kEnhance) second.SetGaussian(1, 1.0);
  const double limit = Limit(source, p, perPlane ? thresholds[p] : f.kind == kEnhance ? 0.2 : 0.1);
  const auto gain = static_cast<float>(perPlane ? gains[p] : f.kind == kEnhance ? 0.3 : 1.7);
  const auto low = static_cast<float>(source.GetLevelMin(p)), high = static_cast<float>(source.GetLevelMax(p));
  const int r = second.GetRadius();
  CVynImage smooth, detected, stars;
  MakeStage(source, p, 0, first.GetRadius(), r + 1, smooth,
            [&](CFilterBlock& block, int x, int) { return std::fabs(block.ConvolveClamped(&first, x, low, high)); });
  MakeStage(smooth, 0, r + 1, 1, r, detected, [&](CFilterBlock& block, int x, int) {
    const float response = Response(block, x);
    return response < limit ? 0.0f : response;
  });
  MakeStage(detected, 0, r, r, 0, stars, [&](CFilterBlock& block, int x, int) { return block.Convolve(&second, x); });
  return [=, &source](int x, int y) {
    const float pixel = At(source, p, x, y), star = At(stars, 0, x, y) * gain;
    if (f.kind == kMask) return f.flag ? (star + pixel) * 0.5f + low : star + low;
    return star + (f.flag ? low : pixel);
  };
}

// The smoother's walk over its map, in which the largest float is the mark.
PixelOf SmoothPixels(const Filter& f, CVynImage& source, int p) {
  const Smoothing& s = smoothings[f.set];
  const CFilterMatrix weights = Gaussian(s.sigma[p]);
  const int r = weights.GetRadius(), d = static_cast<int>(std::max(1.0, std::ceil(s.disc[p])));
  CFilterMatrix disc;
  disc.SetDisc(d, s.disc[p]);
  CVynImage map;
  MakeStage(source, p, 0, 1, r, map, [&](CFilterBlock& block, int x, int y) {
    return Response(block, x) < Limit(source, p, s.threshold[p]) ? block.GetPixel(x, y) : FLT_MAX;
  });
  const auto smoothed = [=, &source](int x, int y) {
    const float c = At(source, p, x, y);
    const auto held = [&](int dx, int dy) {
      return At(map, 0, std::clamp(x + dx, 0, map.GetWidth() - 1), y + r + std::clamp(dy, -r, r));
    };
    for (int dy = -d; dy <= d; ++dy)
      for (int dx = -d; dx <= d; ++dx)
        if (disc.Get(dx, dy) != 0.0f && held(dx, dy) == FLT_MAX) return c;
    float sum = 0.0f, weight = 0.0f;
    for (int i = 0; i < weights.GetCount(); ++i) {
      const float v = held(i % weights.GetSize() - r, i / weights.GetSize() - r);
      if (v == FLT_MAX) continue;
      sum += weights.Get(i) * v;
      weight += weights.Get(i);
    }
    return weight == 0.0f ? c : sum / weight;
  };
  // The levels of the result.
  const auto indicator = [=, &source](int x, int y) { return smoothed(x, y) == At(source, p, x, y) ? 11.0f : -3.0f; };
  return f.flag ? PixelOf(indicator) : PixelOf(smoothed);
}

// Noise with stars, one of them burnt out, a hole and a pixel of the value that marks.
void MakeSky(CVynImage& sky, int width, int height) {
  Shape(sky, width, height, kPlanes);
  // Few enough that windows without any occur, too.
  const double density = std::min(0.05, 8.0 / (width * height));
  Random random(5);
  Fill(sky, [&](int p, int x, int y) {
    if (p == 1 && x == width / 4 && y == height - 1) return FLT_MAX;
    if (x == width / 2 && y == height / 2) return 5000.0f;
    if (x == width / 3 && y == height / 3) return -3000.0f;
    const double star = random.Uniform() < density ? random.Uniform(0.0, 900.0) : 0.0;
    return static_cast<float>(random.Uniform(100.0, 110.0) + star);
  });
  sky.SetLevel(0, 90.0, 600.0);
  sky.SetLevel(1, -2000.0, 610.0);
}

TEST(StarFilters, AreTheirStagesPixelByPixel) {
  struct Case {
    int width, height;
    CRect rect;
    // Of the result beyond the source.
    int more = 0;
  };
  // 130 columns are more than two of the tiles in which rows are worked on.
  const Case cases[] = {{1, 1, {0, 0, 1, 1}},          {1, 7, {0, 0, 1, 7}},       {7, 1, {0, 0, 7, 1}},
                        {2, 2, {-3, -3, 9, 9}, 1},     {13, 9, {0, 0, 13, 9}, -2}, {13, 9, {5, -2, 40, 7}},
                        {13, 9, {13, 9, 17, 12}, 4},   {70, 50, {9, 30, 61, 60}},  {70, 50, {40, 40, 20, 20}},
                        {130, 40, {0, 0, 140, 60}, 4}, {130, 40, {70, 11, 90, 12}}};
  for (const Filter& filter : kFilters) {
    for (const Case& c : cases) {
      CVynImage sky;
      MakeSky(sky, c.width, c.height);
      CImgFilterSpecial result =
          Shaped<CImgFilterSpecial>(c.width + c.more, c.height + c.more, kPlanes + std::max(c.more, 0));
      for (int p = 0; p < result.GetPlanes(); ++p) result.SetLevel(p, -3.0, 11.0);
      FillNoise(result, 6);
      CVynImage expected(result);
      for (int p = 0; p < kPlanes; ++p) {
        const PixelOf pixels = filter.kind == kSmooth ? SmoothPixels(filter, sky, p) : StarPixels(filter, sky, p);
        for (int y = std::max(0, c.rect.top); y < std::min(c.rect.bottom, c.height); ++y)
          for (int x = std::max(0, c.rect.left); x < std::min(c.rect.right, c.width); ++x)
            expected.SetPixelGrayRaw(x, y, pixels(x, y), p);
      }
      CRect rect = c.rect;
      Apply(filter, result, &sky, &rect, 0);
      ASSERT_TRUE(SamePixels(expected, result)) << filter.kind << filter.flag << filter.set << " on " << c.width;
    }
  }
}

// A hot column on a black sky: its response, 8 - 2 = 6 times its height, meets every sum exactly.
TEST(StarFilters, ThresholdIsScaledBy256Twice) {
  CVynImage sky = Shaped(9, 9, 1);
  Fill(sky, [](int, int x, int) { return x == 4 ? 64.0f : 0.0f; });
  double sigma = 1.0, disc = 1.0, threshold = 6.0 * 64.0 / 256.0;
  CImgFilterSpecial result = Shaped<CImgFilterSpecial>(9, 9, 1);
  result.NebularSmootherFilter(&sigma, &threshold, &disc, 0, &sky, nullptr, 0);
  EXPECT_EQ(At(result, 0, 4, 4), 64.0f);
  // By less than a float can tell.
  threshold *= 1.0 + 1e-15;
  result.NebularSmootherFilter(&sigma, &threshold, &disc, 0, &sky, nullptr, 0);
  EXPECT_LT(At(result, 0, 4, 4), 40.0f);
}

TEST(StarFilters, KeepTheRulesOfOperations) {
  CVynImage sky;
  MakeSky(sky, 90, 37);
  // A star broad enough for every threshold.
  for (int i = 0; i < 25; ++i) sky.SetPixelGrayRaw(60 + i % 5, 20 + i / 5, 590.0f, i % kPlanes);
  for (const Filter& filter : kFilters) {
    SCOPED_TRACE(testing::Message() << filter.kind << filter.flag << filter.set);
    ExpectOperationRules<CImgFilterSpecial>(
        sky, filter.kind == kSmooth ? L"ネビュラスムース処理中..." : L"スターエンハンス処理中...", 32 * kPlanes,
        [&](CImgFilterSpecial& result, CVynImage* source, CRect* rect, int b) {
          Apply(filter, result, source, rect, b);
        });
  }
}

TEST(StarFilters, StandAnyArguments) {
  CVynImage sky;
  MakeSky(sky, 9, 6);
  sky.SetPixelGrayRaw(2, 2, static_cast<float>(kNan), 0);
  sky.SetPixelGrayRaw(6, 3, static_cast<float>(kInfinity), 0);
  CImgFilterSpecial empty;
  CImgFilterSpecial result = Shaped<CImgFilterSpecial>(9, 6, 1);
  for (double value : {kNan, -kInfinity, -5.0, -1e-300, 0.0, 1e-200, 9.0}) {
    for (double threshold : {value, kInfinity, 1e300, 0.1}) {
      for (double disc : {value, kInfinity, 1e9}) {
        result.NebularSmootherFilter(&value, &threshold, &disc, 0, &sky, nullptr, 0);
        // Responses that are infinite or not a number are not below any threshold.
        EXPECT_TRUE(std::isnan(At(result, 0, 2, 2)) && std::isinf(At(result, 0, 6, 3)));
      }
      result.StarEnhanceFilter(value, threshold, value, 0, &sky, nullptr, 0);
      result.StarEnhanceFilter2(&value, &threshold, &threshold, 1, &sky, nullptr, 0);
    }
  }
  for (const Filter& filter : kFilters) {
    Apply(filter, empty, &sky, nullptr, 0);
    Apply(filter, result, &empty, nullptr, 0);
  }
  // A hundred rows of mirror images beyond the six that there are.
  result.StaryMask(40.0, 1.0, 0.0, 0, &sky, nullptr, 0);
  EXPECT_TRUE(std::isnan(At(result, 0, 2, 2)));
}

}  // namespace
}  // namespace qmr::test
