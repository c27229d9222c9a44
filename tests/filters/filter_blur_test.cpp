#include "qmrimg/filters/filter_blur.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/filters/separable_reference.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using qmr::test::At;
using qmr::test::Bytes;
using qmr::test::CentreRow;
using qmr::test::FillNoise;
using qmr::test::Pixels;
using qmr::test::SamePixels;
using qmr::test::SeparableReference;
using qmr::test::Shape;

std::vector<float> Blurred(const CVynImage& image, int plane, double sigma) {
  CFilterMatrix matrix;
  matrix.SetGaussianSigma(sigma);
  return SeparableReference(image, plane, CentreRow(matrix, true));
}

TEST(GaussianFilter, EachPlaneHasItsSigma) {
  CVynImage source;
  Shape(source, 70, 50, 3);
  FillNoise(source, 1);
  CImgFilterBlur blur;
  Shape(blur, 70, 50, 3);
  double sigma[3] = {0.5, 1.7, 25.0};
  blur.GaussianFilter(sigma, &source, nullptr, 0);
  for (int p = 0; p < 3; ++p) EXPECT_EQ(Pixels(blur, p), Blurred(source, p, sigma[p])) << p;
}

TEST(GaussianFilter, WritesOnlyTheRectangle) {
  CVynImage source;
  Shape(source, 40, 30, 1);
  FillNoise(source, 2);
  const std::vector<float> expected = Blurred(source, 0, 2.0);
  for (const CRect& rect : {CRect(-5, 3, 11, 20), CRect(20, 25, 99, 99), CRect(0, 0, 40, 1), CRect(30, 5, 10, 20),
                            CRect(3, 20, 30, 5), CRect(50, 50, 60, 60)}) {
    CImgFilterBlur blur;
    Shape(blur, 40, 30, 1);
    CRect area = rect;
    blur.GaussianFilter(2.0, &source, &area, 0);
    for (int y = 0; y < 30; ++y) {
      for (int x = 0; x < 40; ++x) {
        const bool inside = x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom;
        ASSERT_EQ(At(blur, 0, x, y), inside ? expected[static_cast<std::size_t>(y * 40 + x)] : 0.0f) << x << ", " << y;
      }
    }
  }
}

TEST(GaussianFilter, SigmaZeroCopies) {
  CVynImage source;
  Shape(source, 33, 17, 3);
  FillNoise(source, 4, -1000.0, 70000.0);
  CImgFilterBlur blur;
  Shape(blur, 33, 17, 3);
  blur.GaussianFilter(0.0, &source, nullptr, 0);
  EXPECT_TRUE(SamePixels(source, blur));
}

TEST(GaussianFilter, LimitsFadeTheFilterIn) {
  // On the 256-scale of the source: 100 to 150 fully, ramps of 20 below and of 40 above.
  CVynImage source;
  Shape(source, 60, 40, 1);
  FillNoise(source, 9, 1000.0, 2000.0);
  source.SetLevel(0, 1000.0, 2000.0);
  CImgFilterBlur blur;
  Shape(blur, 60, 40, 1);
  blur.GaussianFilter(1.0, 1, 100.0, 20.0, 1, 150.0, 40.0, &source, nullptr, 0);
  const std::vector<float> filtered = Blurred(source, 0, 1.0);
  int inRamps = 0;
  for (int y = 0; y < 40; ++y) {
    for (int x = 0; x < 60; ++x) {
      const double c = At(source, 0, x, y);
      const double m = filtered[static_cast<std::size_t>(y * 60 + x)];
      const double level = (c - 1000.0) / 1000.0 * 255.0;
      double strength = 1.0;
      if (level < 100.0) strength = std::max((level - 80.0) / 20.0, 0.0);
      if (level > 150.0) strength = std::max((190.0 - level) / 40.0, 0.0);
      ASSERT_NEAR(At(blur, 0, x, y), c + (m - c) * strength, 2e-3) << "level " << level;
      inRamps += strength > 0.0 && strength < 1.0;
    }
  }
  EXPECT_GT(inRamps, 100);
}

TEST(GaussianFilter, LimitsIncludeTheirEnds) {
  CVynImage source;
  Shape(source, 6, 1, 1);
  qmr::test::Fill(source, [](int, int x, int) {
    return std::vector<float>{99, 100, 101, 200, 201, 0}[static_cast<std::size_t>(x)];
  });
  CImgFilterBlur blur;
  Shape(blur, 6, 1, 1);
  // Without ramps.
  blur.GaussianFilter(1.0, 1, 100.0, 0.0, 1, 200.0, 0.0, &source, nullptr, 0);
  const std::vector<float> filtered = Blurred(source, 0, 1.0);
  EXPECT_EQ(Pixels(blur, 0), (std::vector<float>{99, filtered[1], filtered[2], filtered[3], 201, 0}));
}

TEST(GaussianFilter, FullFormsWithoutLimitsAreTheSimpleOnes) {
  CVynImage source;
  Shape(source, 45, 21, 3);
  FillNoise(source, 12, -1e6, 1e6);
  CImgFilterBlur simple, scalar, array;
  for (CImgFilterBlur* blur : {&simple, &scalar, &array}) Shape(*blur, 45, 21, 3);
  double sigma[3] = {1.3, 1.3, 1.3};
  int off[3] = {};
  double unused[3] = {7.0, 8.0, 9.0};
  simple.GaussianFilter(1.3, &source, nullptr, 0);
  scalar.GaussianFilter(1.3, 0, 7.0, 8.0, 0, 9.0, 7.0, &source, nullptr, 0);
  array.GaussianFilter(sigma, off, unused, unused, off, unused, unused, &source, nullptr, 0);
  EXPECT_TRUE(SamePixels(simple, scalar));
  EXPECT_TRUE(SamePixels(simple, array));
}

TEST(GaussianFilter, TheSameForAllThreads) {
  CVynImage source;
  Shape(source, 50, 37, 3);
  FillNoise(source, 14);
  EXPECT_TRUE(qmr::test::SameForAllThreads([&] {
    CImgFilterBlur blur;
    Shape(blur, 50, 37, 3);
    blur.GaussianFilter(3.0, 1, 30.0, 20.0, 1, 200.0, 20.0, &source, nullptr, 0);
    return Bytes(blur);
  }));
}

TEST(GaussianFilter, MayFilterItself) {
  CVynImage source;
  Shape(source, 30, 50, 3);
  FillNoise(source, 15);
  CImgFilterBlur other, itself;
  Shape(other, 30, 50, 3);
  itself.CopyImage(source);
  other.GaussianFilter(4.0, &source, nullptr, 0);
  itself.GaussianFilter(4.0, &itself, nullptr, 0);
  EXPECT_TRUE(SamePixels(other, itself));
}

TEST(GaussianFilter, KeepsItsEnginesUntilCleared) {
  CVynImage source;
  Shape(source, 20, 20, 1);
  FillNoise(source, 16);
  CImgFilterBlur blur;
  Shape(blur, 20, 20, 1);
  blur.GaussianFilter(1.0, &source, nullptr, 0);
  blur.GaussianFilter(3.0, &source, nullptr, 0);
  EXPECT_EQ(Pixels(blur, 0), Blurred(source, 0, 1.0));
  blur.ClearFilterProc();
  blur.GaussianFilter(3.0, &source, nullptr, 0);
  EXPECT_EQ(Pixels(blur, 0), Blurred(source, 0, 3.0));
}

TEST(GaussianFilter, SmallerSourcesCoverWhatTheyHave) {
  CVynImage source;
  Shape(source, 10, 8, 1);
  FillNoise(source, 17, 1.0, 2.0);
  CImgFilterBlur blur;
  Shape(blur, 15, 12, 3);
  blur.GaussianFilter(1.0, &source, nullptr, 0);
  const std::vector<float> expected = Blurred(source, 0, 1.0);
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 15; ++x)
      ASSERT_EQ(At(blur, 0, x, y), x < 10 && y < 8 ? expected[static_cast<std::size_t>(y * 10 + x)] : 0.0f);
  EXPECT_EQ(Pixels(blur, 2), std::vector<float>(15 * 12, 0.0f));
}

TEST(GaussianFilter, ReportsARowOfAPlaneAtATime) {
  CVynImage source;
  Shape(source, 8, 20, 3);
  CImgFilterBlur blur;
  Shape(blur, 8, 20, 3);
  qmr::test::RecordingWindow window;
  blur.SetProgressHandle(&window);
  const qmr::test::Threads one(1);
  blur.GaussianFilter(1.0, &source, nullptr, 1);
  ASSERT_GE(window.events.size(), 3u);
  EXPECT_EQ(window.events.front().text, L"ガウスフィルタ処理中...");
  const std::vector<int> percents = window.Percents();
  ASSERT_FALSE(percents.empty());
  // 60 units in steps of one.
  EXPECT_EQ(percents.front(), 1);
  EXPECT_EQ(percents.size(), 60u);
  const std::size_t sent = window.events.size();
  blur.GaussianFilter(1.0, &source, nullptr, 0);
  EXPECT_EQ(window.events.size(), sent);
}

}  // namespace
