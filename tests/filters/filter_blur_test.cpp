#include "qmrimg/filters/filter_blur.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "qmrimg/filters/filter_block.h"
#include "tests/filters/filter_checks.h"

namespace {

using qmr::test::At;
using qmr::test::Faded;
using qmr::test::PixelOf;
using qmr::test::PlaneArguments;
using qmr::test::Separable;
using qmr::test::Strength;
using Case = qmr::test::FilterCase<CImgFilterBlur>;
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
    const double e = static_cast<double>(edge(x, y)) / qmr::test::ResultRange(p);
    const float w = e < 0.0 ? static_cast<float>(e * e) : 1.0f;
    return (1.0f - w) * mean(x, y) + w * At(source, p, x, y);
  };
}

class BlurFilters : public testing::TestWithParam<Case> {};

TEST_P(BlurFilters, ComputeEachPixel) {
  qmr::test::ExpectPixels(GetParam());
}
TEST_P(BlurFilters, SameForAllThreadsAndInPlace) {
  qmr::test::ExpectSameForAllThreads(GetParam());
}
TEST_P(BlurFilters, ReportRows) {
  qmr::test::ExpectReport(GetParam());
}

// Arguments and limits are those of a plane, or arrays of all planes.
#define QMR_CALL(...) [](CImgFilterBlur& f, auto& s, CVynImage* i, CRect* r, int b) { f.__VA_ARGS__; }
#define QMR_LIMITS(s) s.minOn, s.min, s.minBuf, s.maxOn, s.max, s.maxBuf

constexpr const wchar_t* kGaussian = L"ガウスフィルタ処理中...";
constexpr const wchar_t* kMean = L"平均値フィルタ処理中...";

INSTANTIATE_TEST_SUITE_P(
    All, BlurFilters,
    testing::Values(Case("Gaussian", kGaussian, 3, QMR_CALL(GaussianFilter(s.a, i, r, b)), Gaussian),
                    Case("GaussianLimited", kGaussian, 3, QMR_CALL(GaussianFilter(s.a, QMR_LIMITS(s), i, r, b)),
                         Limited(Gaussian)),
                    Case("MeanBox", kMean, 3, QMR_CALL(MeanFilter(s.a, s.b, i, r, b)), Box),
                    Case("MeanDisc", kMean, 4, QMR_CALL(MeanFilter(s.a, s.b, QMR_LIMITS(s), i, r, b)), Limited(Disc)),
                    Case("WithoutEdge", kMean, 3, QMR_CALL(MeanWithoutEdgeFilter(s.a, s.b, i, r, b)), WithoutEdge),
                    Case("WithoutEdgeLimited", kMean, 3,
                         QMR_CALL(MeanWithoutEdgeFilter(s.a, s.b, QMR_LIMITS(s), i, r, b)), Limited(WithoutEdge))),
    [](const auto& info) { return info.param.name; });

TEST(BlurFilters, SigmaAndWeightOfZeroCopy) {
  CVynImage source;
  qmr::test::Shape(source, 33, 17, 3);
  qmr::test::FillNoise(source, 4, -1000.0, 70000.0);
  CImgFilterBlur gaussian, box, disc;
  for (CImgFilterBlur* blur : {&gaussian, &box, &disc}) qmr::test::ShapeResult(*blur, 33, 17, 3);
  gaussian.GaussianFilter(0.0, &source, nullptr, 0);
  box.MeanFilter(4.0, 0.0, &source, nullptr, 0);
  disc.MeanFilter(4.0, 0.0, 0, 0.0, 0.0, 0, 0.0, 0.0, &source, nullptr, 0);
  for (const CImgFilterBlur* blur : {&gaussian, &box, &disc}) EXPECT_TRUE(qmr::test::SamePixels(source, *blur));
}

TEST(GaussianFilter, KeepsItsEnginesUntilCleared) {
  CVynImage source;
  qmr::test::ShapeSource(source, 20, 20, 1);
  CImgFilterBlur kept, fresh;
  for (CImgFilterBlur* blur : {&kept, &fresh}) qmr::test::ShapeResult(*blur, 20, 20, 1);
  kept.GaussianFilter(3.0, &source, nullptr, 0);
  fresh.GaussianFilter(1.0, &source, nullptr, 0);
  fresh.GaussianFilter(3.0, &source, nullptr, 0);
  EXPECT_FALSE(qmr::test::SamePixels(kept, fresh));
  fresh.ClearFilterProc();
  fresh.GaussianFilter(3.0, &source, nullptr, 0);
  EXPECT_TRUE(qmr::test::SamePixels(kept, fresh));
}

}  // namespace
