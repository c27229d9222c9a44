#include "qmrimg/filters/filter_blur.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "qmrimg/filters/filter_block.h"
#include "tests/filters/filter_checks.h"
#include "tests/filters/rank_reference.h"

namespace qmr::test {
namespace {

using Case = FilterCase<CImgFilterBlur>;
using Reference = std::function<PixelOf(CVynImage& source, int p, const PlaneArguments& s)>;

Reference Limited(const Reference& simple) {
  return [=](CVynImage& source, int p, const PlaneArguments& s) -> PixelOf {
    return [=, &source, filtered = simple(source, p, s)](int x, int y) {
      const float c = At(source, p, x, y);
      return Faded(c, filtered(x, y), Strength(source, p, s, c));
    };
  };
}

PixelOf Gaussian(CVynImage& source, int p, const PlaneArguments& s) {
  CFilterMatrix matrix;
  matrix.SetGaussianSigma(s.a);
  return Separable(source, p, matrix);
}

// Of matrix radius 2 * radius, so that weights of 0 meet pixels further away.
PixelOf Box(CVynImage& source, int p, const PlaneArguments& s) {
  CFilterMatrix disc;
  disc.SetWeightedDisc(std::max(1, 2 * static_cast<int>(s.a)), s.a, s.b);
  return Separable(source, p, disc);
}

CFilterMatrix DiscOf(const PlaneArguments& s) {
  CFilterMatrix disc;
  disc.SetWeightedDisc(std::max(1, static_cast<int>(s.a)), s.a, s.b);
  return disc;
}

PixelOf Disc(CVynImage& source, int p, const PlaneArguments& s) {
  return [&source, p, disc = DiscOf(s)](int x, int y) mutable {
    return CFilterBlock(&source, disc.GetRadius(), 0, y, p, 2).Convolve(&disc, x);
  };
}

// Below a radius of 1 the edge kernel is empty; its response is no number, which keeps the pixel.
PixelOf WithoutEdge(CVynImage& source, int p, const PlaneArguments& s) {
  CFilterMatrix laplacian;
  laplacian.SetLaplacian(std::max(1, static_cast<int>(s.a)), s.a);
  return [=, &source, mean = Separable(source, p, DiscOf(s)), edge = Separable(source, p, laplacian)](int x, int y) {
    const double e = static_cast<double>(edge(x, y)) / ResultRange(p);
    const float w = e < 0.0 ? static_cast<float>(e * e) : 1.0f;
    return (1.0f - w) * mean(x, y) + w * At(source, p, x, y);
  };
}

// Cells beyond the image meet nothing.
PixelOf Median(CVynImage& source, int p, const PlaneArguments& s) {
  const int reach = static_cast<int>(std::clamp(s.a, 1.0, 100.0));
  return [=, &source](int x, int y) {
    const std::vector<float> sorted = SortedDisc(source, p, x, y, reach, s.a * s.a, true);
    return sorted[sorted.size() / 2];
  };
}

class BlurFilters : public testing::TestWithParam<Case> {};

TEST_P(BlurFilters, ComputeEachPixel) {
  ExpectPixels(GetParam());
}
TEST_P(BlurFilters, KeepTheRulesOfOperations) {
  ExpectRules(GetParam());
}

// Arguments and limits are those of a plane, or arrays of all planes.
#define QMR_CALL(...) [](CImgFilterBlur& f, auto& s, CVynImage* i, CRect* r, int b) { f.__VA_ARGS__; }
#define QMR_LIMITS(s) s.minOn, s.min, s.minBuf, s.maxOn, s.max, s.maxBuf

constexpr const wchar_t* kGaussian = L"ガウスフィルタ処理中...";
constexpr const wchar_t* kMedian = L"中央値フィルタ処理中";
constexpr const wchar_t* kMean = L"平均値フィルタ処理中...";

INSTANTIATE_TEST_SUITE_P(
    All, BlurFilters,
    testing::Values(
        Case("Median", kMedian, 4, QMR_CALL(MedianFilter(s.a, i, r, b)), Median),
        Case("MedianLimited", kMedian, 4, QMR_CALL(MedianFilter(s.a, QMR_LIMITS(s), i, r, b)), Limited(Median)),
        Case("Gaussian", kGaussian, 3, QMR_CALL(GaussianFilter(s.a, i, r, b)), Gaussian),
        Case("GaussianLimited", kGaussian, 3, QMR_CALL(GaussianFilter(s.a, QMR_LIMITS(s), i, r, b)), Limited(Gaussian)),
        Case("MeanBox", kMean, 3, QMR_CALL(MeanFilter(s.a, s.b, i, r, b)), Box),
        Case("MeanDisc", kMean, 4, QMR_CALL(MeanFilter(s.a, s.b, QMR_LIMITS(s), i, r, b)), Limited(Disc)),
        Case("WithoutEdge", kMean, 3, QMR_CALL(MeanWithoutEdgeFilter(s.a, s.b, i, r, b)), WithoutEdge),
        Case("WithoutEdgeLimited", kMean, 3, QMR_CALL(MeanWithoutEdgeFilter(s.a, s.b, QMR_LIMITS(s), i, r, b)),
             Limited(WithoutEdge))),
    [](const auto& info) { return info.param.name; });

TEST(GaussianFilter, KeepsItsEnginesUntilCleared) {
  CVynImage source;
  ShapeSource(source, 20, 20, 1);
  CImgFilterBlur kept, fresh;
  for (CImgFilterBlur* blur : {&kept, &fresh}) ShapeResult(*blur, 20, 20, 1);
  kept.GaussianFilter(3.0, &source, nullptr, 0);
  fresh.GaussianFilter(1.0, &source, nullptr, 0);
  fresh.GaussianFilter(3.0, &source, nullptr, 0);
  EXPECT_FALSE(SamePixels(kept, fresh));
  fresh.ClearFilterProc();
  fresh.GaussianFilter(3.0, &source, nullptr, 0);
  EXPECT_TRUE(SamePixels(kept, fresh));
}

TEST(MedianFilter, AnyRadiusEnds) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  CVynImage source = Noise(9, 6, 1, 2);
  std::vector<float> all = Pixels(source, 0);
  std::sort(all.begin(), all.end());
  for (const double radius : {100.0, 1e9, 1e300, kInfinity, std::nan("")}) {
    CImgFilterBlur blur;
    blur.CopyImage(source);
    blur.MedianFilter(radius, &source, nullptr, 0);
    EXPECT_EQ(Pixels(blur, 0), std::vector<float>(54, std::isnan(radius) ? 0.0f : all[27])) << radius;
  }
}

}  // namespace
}  // namespace qmr::test
