// Samples at single positions.
#include "qmrimg/geometry/interp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include "qmrimg/geometry/kernels/weights.h"
#include "tests/geometry/interp_reference.h"

namespace qmr::test {
namespace {

TEST(Interp, NamesOfMethods) {
  const wchar_t* const names[] = {L"bilinear", L"bicubic", L"lanczos2", L"lanczos3", L"nearestneighbor", L"lanczos"};
  for (int i = 0; i <= 5; ++i) {
    CString name = CInterp::GetEngString(i), sought(names[i]);
    name.MakeLower();
    EXPECT_TRUE(name == (i < 5 ? names[i] : L""));
    EXPECT_EQ(CInterp::GetString(i).IsEmpty(), i == 5);
    EXPECT_EQ(CInterp::GetMethod(sought), i < 5 ? i : -1);
  }
  EXPECT_TRUE(CInterp::GetEngString(-1).IsEmpty());
}

TEST(Interp, KernelsFollowTheirFormulas) {
  EXPECT_EQ(CInterp::KernelBicubic(0.0, -0.5), 1.0);
  EXPECT_EQ(CInterp::KernelBicubic(-1.0, -0.5), 0.0);
  EXPECT_EQ(CInterp::KernelBicubic(0.5, -0.5), 0.5625);
  EXPECT_EQ(CInterp::KernelBicubic(-1.5, -0.5), -0.0625);
  EXPECT_EQ(CInterp::KernelBicubic(2.5, -0.5), 0.0);
  EXPECT_EQ(CInterp::KernelLanczos(0.0, 3.0), 1.0);
  EXPECT_EQ(CInterp::KernelLanczos(1e-200, 3.0), 1.0);
  EXPECT_EQ(CInterp::KernelLanczos(3.1, 3.0), 0.0);
  const double p = 1.25 * 3.141592653589793;
  EXPECT_NEAR(CInterp::KernelLanczos(-1.25, 3.0), std::sin(p / 3) * std::sin(p) * 3 / (p * p), 4e-16);
  // The windows' weights are the kernel at the distances of their taps.
  double worst = 0.0;
  for (int i = 0; i <= 20000; ++i) {
    const double f = i / 20000.0;
    double two[4], three[6];
    Lanczos2Taps::Weights(f, two, 1);
    Lanczos3Taps::Weights(f, three, 1);
    for (int k = 0; k < 4; ++k) worst = std::max(worst, std::fabs(two[k] - CInterp::KernelLanczos(f + 1 - k, 2)));
    for (int k = 0; k < 6; ++k) worst = std::max(worst, std::fabs(three[k] - CInterp::KernelLanczos(f + 2 - k, 3)));
  }
  EXPECT_LE(worst, 2e-15);
}

TEST(Interp, CalcSumsRowsThenColumns) {
  double weightsX[] = {1.0, 1e16, -1e16};
  double weightsY[] = {1.0, 0.5, 0.0};
  float pixels[] = {1, 1, 1, 2, 2, 2, 9, 9, 9};
  // Each row's 1.0 is lost in 1e16 when the columns are added in their order.
  EXPECT_EQ(CInterp::Calc(weightsY, pixels, weightsX, 3), 0.0f);
  EXPECT_EQ(CInterp::Calc(weightsY, pixels, weightsY, 2), 2.5f);
}

class Sampling : public testing::TestWithParam<int> {};

TEST_P(Sampling, AgreesWithTheFormulasOnAwkwardImages) {
  const int method = GetParam();
  Random random(7);
  for (const auto& [width, height] : {std::pair{23, 17}, {1, 1}, {1, 9}, {7, 1}, {2, 3}}) {
    CVynImage image = Noise(width, height, 3, 5, -100.0, 3000.0);
    const CInterp bound(method, &image, 0);
    int unequal = 0;
    for (int i = 0; i < 2000; ++i) {
      double x = random.Uniform(0.0, width);
      double y = random.Uniform(0.0, height);
      // Exact columns and rows, both ends of the accepted range and tiny
      // fractions.
      if (i % 5 == 0) x = std::floor(x);
      if (i % 7 == 0) y = std::floor(y);
      if (i % 31 == 0) x = width;
      if (i % 37 == 0) y = height;
      if (i % 41 == 0) x = std::nextafter(std::floor(x), 0.0);
      if (i % 43 == 0) x = 1e-170;
      if (x < 0.0) x = 0.0;
      float expected = 0.0f;
      ASSERT_TRUE(ReferenceSample(image, method, i % 3, x, y, &expected) || x == 1e-170);
      if (x == 1e-170) ReferenceSample(image, method, i % 3, 0.0, y, &expected);
      const float actual = bound.Do(x, y, i % 3);
      EXPECT_NEAR(actual, expected, 4e-4) << method << " at " << x << ", " << y << " of " << width << " x " << height;
      unequal += actual != expected;
    }
    EXPECT_LE(unequal, 4);
  }
}

TEST_P(Sampling, WindowMembersNeedNoBinding) {
  const int method = GetParam();
  CVynImage image = Noise(9, 21, 2, 3);
  CVynImage other = Shaped(3, 3, 1);
  const CInterp bound(method, &image, 0);
  const CInterp loose(method);
  const CInterp elsewhere(method, &other, 0);
  constexpr decltype(&CInterp::Bilinear) kMembers[] = {&CInterp::Bilinear, &CInterp::Bicubic, &CInterp::Lanczos2,
                                                       &CInterp::Lanczos3, &CInterp::Nearest};
  for (double y = 0.0; y <= 21.0; y += 0.37) {
    const float expected = bound.Do(4.3, y, 1);
    for (const CInterp* interp : {&bound, &loose, &elsewhere}) {
      float value = -1.0f;
      EXPECT_EQ((interp->*kMembers[method])(&image, 1, 4.3, y, &value), 1);
      EXPECT_EQ(value, expected) << y;
    }
  }
  float kept = 5.0f;
  EXPECT_EQ(loose.Bicubic(nullptr, 0, 1.0, 1.0, &kept), 0);
  EXPECT_EQ(kept, 5.0f);
}

INSTANTIATE_TEST_SUITE_P(Methods, Sampling, testing::Range(0, 5));

TEST(Interp, RefusedPositions) {
  CVynImage image = Noise(8, 6, 1, 1, 10.0, 20.0);
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  for (int method = 0; method < 4; ++method) {
    const CInterp interp(method, &image, 0);
    EXPECT_NE(interp.Do(8.0, 2.5, 0), 0.0f);
    EXPECT_EQ(interp.Do(8.001, 2.5, 0), 0.0f);
    EXPECT_EQ(interp.Do(2.5, 6.001, 0), 0.0f);
    EXPECT_EQ(interp.Do(-1e-9, 2.5, 0), 0.0f);
    EXPECT_EQ(interp.Do(2.5, nan, 0), 0.0f);
    EXPECT_EQ(interp.Do(2.5, 2.5, 1), 0.0f);
    EXPECT_EQ(interp.Do(2.5, 2.5, -1), 0.0f);
  }
  const CInterp nearest(4, &image, 0);
  EXPECT_EQ(nearest.Do(-0.4, 1.0, 0), At(image, 0, 0, 1));
  EXPECT_EQ(nearest.Do(-3.0, 1e300, 0), At(image, 0, 0, 5));
  EXPECT_EQ(nearest.Do(7.6, -1e300, 0), At(image, 0, 7, 0));
  EXPECT_EQ(nearest.Do(nan, 0.5, 0), At(image, 0, 0, 1));
  EXPECT_EQ(CInterp(5, &image, 0).Do(2.0, 2.0, 0), 0.0f);
}

TEST(Interp, ZeroWeightsKeepInfinitiesOut) {
  CVynImage image = Shaped(4, 4, 1);
  Fill(image, [](int, int x, int y) {
    return x == 2 || y == 2 ? std::numeric_limits<float>::infinity() : static_cast<float>(x + 10 * y);
  });
  const CInterp interp(0, &image, 0);
  EXPECT_EQ(interp.Do(1.0, 1.0, 0), 11.0f);
  EXPECT_EQ(interp.Do(1.0, 0.5, 0), 6.0f);
  EXPECT_EQ(interp.Do(0.5, 1.0, 0), 10.5f);
}

TEST(Interp, PixelFormMapsShiftRotationAndScale) {
  CVynImage image = Noise(31, 27, 3, 11, 0.0, 1000.0);
  for (int p = 0; p < 3; ++p) image.SetLevel(p, 10.0 * p, 500.0 + p);
  image.SetStdCtr(14.25, 12.5);
  OpenInterp shifted(1);
  shifted.SetBParam(&image, 2.25, -1.5, 0.5, 1.0, 2.0, 1, -1, -9.0f);
  EXPECT_EQ(shifted.shiftType, 1);
  EXPECT_FALSE(shifted.rowTable);
  shifted.SetBParam(&image, 2.0, -1.0, 0.5, 1.0, 2.0, 1, -1, -9.0f);
  EXPECT_EQ(shifted.shiftType, 0);

  const double sine = std::sin(0.3), cosine = std::cos(0.3);
  for (const auto& [s, c] : {std::pair{0.0, 1.0}, {sine, cosine}}) {
    CInterp interp(1);
    const double scale = 0.8;
    interp.SetBParam(&image, 2.25, -1.5, s, c, scale, 1, -1, -9.0f);
    const CInterp sampler(1, &image, 0);
    int inside = 0;
    for (int y = -3; y < 32; ++y) {
      for (int x = -3; x < 36; ++x) {
        const double dx = x - 14.25 - 2.25, dy = 12.5 - y - 1.5;
        const bool plain = s == 0.0;
        const double sx = plain ? x - 2.25 : c * dx - s * dy + 14.25;
        const double sy = plain ? y + 1.5 : 12.5 - (s * dx + c * dy);
        const bool in = sx >= 0 && sx < 31 && sy >= 0 && sy < 27;
        double atX = 0.0, atY = 0.0;
        int outside = 7;
        const float raw = interp.GetBPixelGrayRaw(x, y, &outside, &atX, &atY);
        const float scaled = interp.GetBPixelGray256f(x, y, nullptr, nullptr, nullptr);
        ASSERT_NEAR(atX, sx, 1e-12);
        ASSERT_NEAR(atY, sy, 1e-12);
        ASSERT_EQ(outside, in ? 0 : 1);
        if (!in) {
          EXPECT_EQ(raw, -9.0f);
          EXPECT_EQ(scaled, -9.0f);
        } else {
          ++inside;
          // Beyond the last column and row the position is held there.
          const double hx = std::min(atX, 30.0), hy = std::min(atY, 26.0);
          float v[3], w[3];
          for (int p = 0; p < 3; ++p) {
            v[p] = sampler.Do(hx, hy, p);
            w[p] = static_cast<float>((v[p] - 10.0 * p) / (500.0 + p - 10.0 * p) * 255.0);
          }
          EXPECT_FLOAT_EQ(raw, static_cast<float>(0.299 * v[0] + 0.587 * v[1] + 0.114 * v[2]));
          EXPECT_FLOAT_EQ(scaled, static_cast<float>(0.299 * w[0] + 0.587 * w[1] + 0.114 * w[2]));
        }
        // With the scale, about the centre.
        const double lx = plain ? (x - 14.25 - 2.25) * scale + 14.25 : (c * dx - s * dy) * scale + 14.25;
        const double ly = plain ? (y - 12.5 + 1.5) * scale + 12.5 : 12.5 - (s * dx + c * dy) * scale;
        const bool lit = lx >= 0 && lx < 31 && ly >= 0 && ly < 27;
        const double hx = std::min(lx, 30.0), hy = std::min(ly, 26.0);
        double a = 0.0, b = 0.0;
        interp.GetPixelAb(x, y, &a, &b);
        EXPECT_NEAR(interp.GetPixelL(x, y), lit ? sampler.Do(hx, hy, 0) : -9.0f, 1e-3);
        EXPECT_NEAR(a, lit ? sampler.Do(hx, hy, 0) : -9.0f, 1e-3);
        EXPECT_NEAR(b, lit ? sampler.Do(hx, hy, 1) : -9.0f, 1e-3);
      }
    }
    EXPECT_GT(inside, 500);
  }
}

TEST(Interp, PixelFormOfFewerPlanes) {
  CVynImage images[] = {Noise(5, 5, 1, 2), Noise(5, 5, 2, 3)};
  CInterp interp(0);
  // A single plane answers for all; of two, the first for brightness.
  for (const auto& [image, asked, plane] : {std::tuple(0, -1, 0), {0, 0, 0}, {0, 2, 0}, {1, 1, 1}, {1, -1, 0}}) {
    interp.SetBParam(&images[image], 0.0, 0.0, 0.0, 1.0, 1.0, 0, asked, 0.0f);
    EXPECT_EQ(interp.GetBPixelGrayRaw(2, 3, nullptr, nullptr, nullptr), At(images[image], plane, 2, 3)) << asked;
  }
}

}  // namespace
}  // namespace qmr::test
