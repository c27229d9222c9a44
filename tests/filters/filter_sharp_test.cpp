#include "qmrimg/filters/filter_sharp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "qmrimg/filters/filter_block.h"
#include "tests/filters/filter_checks.h"

namespace qmr::test {
namespace {

using Case = FilterCase<CImgFilterSharp>;

// Every tap of the window, also those of weight 0.
PixelOf Window(CVynImage& source, int p, CFilterMatrix matrix) {
  return [&source, p, matrix](int x, int y) mutable {
    return CFilterBlock(&source, matrix.GetRadius(), 0, y, p, 2).Convolve(&matrix, x);
  };
}

float Lifted(const PlaneArguments& s, float c, float f) {
  if (!s.brighterOn || !(f < c)) return f;
  return f + (c - f) * (s.brighter < 0.0 ? static_cast<float>(s.brighter / 100.0) : 1.0f);
}

PixelOf Limited(CVynImage& source, int p, const PlaneArguments& s, const PixelOf& filtered) {
  return [=, &source](int x, int y) {
    const float c = At(source, p, x, y);
    return Faded(c, Lifted(s, c, filtered(x, y)), Strength(source, p, s, c));
  };
}

PixelOf Sharp(CVynImage& source, int p, const PlaneArguments& s) {
  CFilterMatrix matrix;
  matrix.SetSharpen(std::max(1.0, s.a), s.b);
  return Window(source, p, matrix);
}

PixelOf Edge(CVynImage& source, int p, const PlaneArguments& s) {
  CFilterMatrix matrix, laplacian;
  matrix.SetSharpen(s.a, s.b);
  laplacian.SetLaplacian(matrix.GetRadius(), s.a);
  const PixelOf strong = Window(source, p, matrix), response = Window(source, p, laplacian);
  return [=, &source](int x, int y) {
    const double e = static_cast<double>(response(x, y)) / ResultRange(p);
    const float w = e < 0.0 ? static_cast<float>(e * e) : 1.0f;
    return (1.0f - w) * At(source, p, x, y) + w * strong(x, y);
  };
}

PixelOf Blurred(CVynImage& source, int p, double sigma) {
  CFilterMatrix matrix;
  matrix.SetGaussianSigma(sigma);
  return Separable(source, p, matrix);
}

PixelOf Mask(CVynImage& source, int p, const PlaneArguments& s) {
  return [=, &source, blurred = Blurred(source, p, s.a)](int x, int y) {
    const float c = At(source, p, x, y), m = blurred(x, y), ratio = m / c;
    // Pixels of 0 have infinite ratios, which pass; 0 / 0 does not.
    return std::abs(ratio - 1.0) >= s.c ? static_cast<float>(static_cast<double>(c - m) * s.b + c) : c;
  };
}

// The strength scales the gain, and the limit on darkening comes last.
PixelOf LimitedMask(CVynImage& source, int p, const PlaneArguments& s) {
  return [=, &source, blurred = Blurred(source, p, s.a)](int x, int y) {
    const float c = At(source, p, x, y), t = Strength(source, p, s, c);
    return t < 0.0f ? c : Lifted(s, c, static_cast<float>(static_cast<double>(c - blurred(x, y)) * (s.b * t) + c));
  };
}

// Six sigmas and gains of the three arguments, gains of 0 and below among them.
#define QMR_BANDS(s) s.a, s.b, s.b, s.c, s.c, s.a, s.a, s.c, s.b, s.b, s.c, s.b
#define QMR_LIMITS(s) s.minOn, s.min, s.minBuf, s.maxOn, s.max, s.maxBuf, s.brighterOn, s.brighter

PixelOf Bands(CVynImage& source, int p, const PlaneArguments& s) {
  const std::vector<double> values = {QMR_BANDS(s)};
  std::vector<PixelOf> blurred;
  for (std::size_t k = 0; k < 6; ++k) blurred.push_back(Blurred(source, p, values[2 * k]));
  const auto mean = [=, &source](int x, int y) {
    const float c = At(source, p, x, y);
    float sum = 0.0f;
    for (std::size_t k = 0; k < 6; ++k) {
      const float gain = static_cast<float>(values[2 * k + 1]);
      sum += gain > 0.0f ? (c - blurred[k](x, y)) * gain + c : c;
    }
    return sum / 6.0f;
  };
  return Limited(source, p, s, mean);
}

class SharpFilters : public testing::TestWithParam<Case> {};

TEST_P(SharpFilters, ComputeEachPixel) {
  ExpectPixels(GetParam());
}
TEST_P(SharpFilters, KeepTheRulesOfOperations) {
  ExpectRules(GetParam());
}

// Arguments and limits are those of a plane, or arrays of all planes.
#define QMR_CALL(...) [](CImgFilterSharp& f, auto& s, CVynImage* i, CRect* r, int b) { f.__VA_ARGS__; }

constexpr const wchar_t* kSharp = L"シャープフィルタ処理中";
constexpr const wchar_t* kMask = L"アンシャープマスク処理中...";

INSTANTIATE_TEST_SUITE_P(
    All, SharpFilters,
    testing::Values(Case("Sharp", kSharp, 4, QMR_CALL(SharpFilter(s.a, s.b, i, r, b)), Sharp),
                    Case("SharpLimited", kSharp, 4, QMR_CALL(SharpFilter(s.a, s.b, QMR_LIMITS(s), i, r, b)),
                         [](CVynImage& i, int p, const PlaneArguments& s) { return Limited(i, p, s, Sharp(i, p, s)); }),
                    Case("Edge", kSharp, 4, QMR_CALL(SharpEdgeFilter(s.a, s.b, i, r, b)), Edge),
                    Case("EdgeLimited", kSharp, 4, QMR_CALL(SharpEdgeFilter(s.a, s.b, QMR_LIMITS(s), i, r, b)),
                         [](CVynImage& i, int p, const PlaneArguments& s) { return Limited(i, p, s, Edge(i, p, s)); }),
                    Case("Mask", kMask, 3, QMR_CALL(UnSharpMask(s.a, s.b, s.c, i, r, b)), Mask),
                    Case("MaskLimited", kMask, 3, QMR_CALL(UnSharpMask(s.a, s.b, QMR_LIMITS(s), i, r, b)), LimitedMask),
                    Case("Bands", L"マルチバンド・シャープフィルタ処理中...", 3,
                         QMR_CALL(SubBandUnSharpMask(QMR_BANDS(s), QMR_LIMITS(s), i, r, b)), Bands)),
    [](const auto& info) { return info.param.name; });

TEST(UnSharpMask, KeepsItsEnginesUntilCleared) {
  CVynImage source;
  ShapeSource(source, 20, 20, 1);
  const auto masks = [&](CImgFilterSharp& f, double sigma) {
    f.UnSharpMask(sigma, 1.0, 0.0, &source, nullptr, 0);
    const std::vector<float> mask = Pixels(f, 0);
    f.SubBandUnSharpMask(sigma, 1, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0, &source, nullptr, 0);
    return std::vector{mask, Pixels(f, 0)};
  };
  CImgFilterSharp kept, fresh;
  for (CImgFilterSharp* f : {&kept, &fresh}) ShapeResult(*f, 20, 20, 1);
  const auto first = masks(kept, 1.0);
  EXPECT_EQ(masks(kept, 3.0), first);
  kept.ClearFilterProc();
  EXPECT_EQ(masks(kept, 3.0), masks(fresh, 3.0));
}

}  // namespace
}  // namespace qmr::test
