#include "qmrimg/filters/filter_proc.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "qmrimg/filters/separable_scan.h"
#include "tests/filters/separable_reference.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

struct Case {
  int width, height;
  double sigma;
};

class SeparableSizes : public testing::TestWithParam<Case> {};

TEST_P(SeparableSizes, PixelsAndRowsMatchPlainSums) {
  const auto [width, height, sigma] = GetParam();
  CVynImage image = Noise(width, height, 2, 3, -100.0, 60000.0);
  CFilterMatrix matrix;
  matrix.SetGaussianSigma(sigma);
  CFilterProc engine(&image, &matrix, 1);
  const std::vector<float> expected = SeparableReference(image, 1, CentreRow(matrix, true));
  const int left = width / 3, end = width - width / 5;
  SeparableScan whole(image, 1, engine.GetKernel(), 0, width, height);
  SeparableScan part(image, 1, engine.GetKernel(), left, end, height);
  for (int y = 0; y < height; ++y) {
    const std::span<const float> row = whole.Row(y);
    ASSERT_EQ(row.size(), static_cast<std::size_t>(width));
    const std::span<const float> piece = part.Row(y);
    ASSERT_EQ(piece.size(), static_cast<std::size_t>(end - left));
    for (int x = 0; x < width; ++x) {
      const float value = expected[static_cast<std::size_t>(y * width + x)];
      ASSERT_EQ(engine.Calc(x, y), value) << x << ", " << y;
      ASSERT_EQ(row[static_cast<std::size_t>(x)], value) << x << ", " << y;
      if (x >= left && x < end) {
        ASSERT_EQ(piece[static_cast<std::size_t>(x - left)], value) << x << ", " << y;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, SeparableSizes,
    testing::Values(Case{1, 1, 0.0}, Case{1, 1, 4.0}, Case{2, 1, 1.0}, Case{1, 9, 2.0}, Case{5, 3, 0.5},
                    Case{17, 9, 2.0}, Case{9, 17, 7.3}, Case{64, 6, 1.0}, Case{70, 50, 2.0}, Case{65, 33, 10.0},
                    Case{130, 11, 30.0},
                    // Radius 589: the first row's window is further from the start value than the ring is long.
                    Case{3, 40, 210.0}));

// Rows of constant value y + 1, and the taps 1, 10, 100: the result tells which rows the window held. The
// horizontal pass multiplies by 111.
class RingOfThree : public testing::Test {
 protected:
  RingOfThree() {
    Shape(image, 4, 12, 1);
    Fill(image, [](int, int, int y) { return static_cast<float>(y + 1); });
    const float taps[9] = {0, 0, 0, 1, 10, 100, 0, 0, 0};
    CFilterMatrix matrix(1, taps, 9);
    engine.MakeBuf(&image, &matrix, 0, 0);
  }
  static float Window(int a, int b, int c) {
    return 111.0f * static_cast<float>((a + 1) + 10 * (b + 1) + 100 * (c + 1));
  }

  CVynImage image;
  CFilterProc engine;
};

TEST_F(RingOfThree, DownwardStepsAndJumpsHoldTheWindow) {
  EXPECT_EQ(engine.Calc(0, 0), Window(1, 0, 1));
  EXPECT_EQ(engine.Calc(3, 1), Window(0, 1, 2));
  EXPECT_EQ(engine.Calc(1, 3), Window(2, 3, 4));
  EXPECT_EQ(engine.Calc(1, 6), Window(5, 6, 7));
  EXPECT_EQ(engine.Calc(1, 11), Window(10, 11, 11));
  // Far upward: the window is filled afresh.
  EXPECT_EQ(engine.Calc(1, 5), Window(4, 5, 6));
}

TEST_F(RingOfThree, ShortStepsUpwardBringInRowsBelow) {
  EXPECT_EQ(engine.Calc(0, 5), Window(4, 5, 6));
  // One up: row 7 replaces row 4, and the negative head reads as 0.
  EXPECT_EQ(engine.Calc(0, 4), Window(7, 5, 6));
  EXPECT_EQ(engine.Calc(0, 5), Window(7, 5, 6));
  EXPECT_EQ(engine.Calc(0, 6), Window(5, 6, 7));
  // As many rows up as the ring has still is a short step.
  EXPECT_EQ(engine.Calc(0, 3), Window(10, 8, 9));
  engine.StartPass();
  EXPECT_EQ(engine.Calc(0, 3), Window(2, 3, 4));
}

TEST_F(RingOfThree, OutsideAnswersZero) {
  EXPECT_EQ(engine.Calc(-1, 5), 0.0f);
  EXPECT_EQ(engine.Calc(4, 5), 0.0f);
  // Rows beyond the image mirror like those of a window.
  EXPECT_EQ(engine.Calc(0, -1000), engine.Calc(0, -1000));
  EXPECT_EQ(engine.Calc(0, 13), Window(11, 10, 9));
  engine.Empty();
  EXPECT_TRUE(engine.IsEmpty());
  EXPECT_EQ(engine.Calc(0, 5), 0.0f);
  EXPECT_EQ(engine.ProcHorizontal(0, 5), 0);
}

TEST(FilterProc, FloatTwinsSumInFloat) {
  CVynImage image = Noise(31, 12, 1, 21, 0.0, 60000.0);
  CFilterMatrix matrix;
  matrix.SetGaussianSigma(2.0);
  CFilterProc engine(&image, &matrix, 0);
  const std::vector<float> inFloat = SeparableReference<float>(image, 0, CentreRow(matrix, true));
  const std::vector<float> inDouble = SeparableReference<double>(image, 0, CentreRow(matrix, true));
  EXPECT_NE(inFloat, inDouble);
  std::vector<float> actual;
  for (int y = 0; y < 12; ++y) {
    ASSERT_EQ(engine.ProcHorizontal(0, y), 1);
    for (int x = 0; x < 31; ++x) actual.push_back(engine.ProcVertical(x));
  }
  EXPECT_EQ(actual, inFloat);
}

TEST(FilterProc, UnnormalisedKernelsStayAsTheyAre) {
  CVynImage image = Shaped(6, 6, 1);
  Fill(image, [](int, int, int) { return 2.0f; });
  CFilterMatrix disc;
  disc.SetDisc(1, 1.0);
  CFilterProc plain, normalised(&image, &disc, 0);
  plain.MakeBuf(&image, &disc, 0, 0);
  // A box of the disc's width in both directions, not a disc.
  EXPECT_EQ(plain.Calc(3, 3), 18.0f);
  EXPECT_FLOAT_EQ(normalised.Calc(3, 3), 2.0f);
}

TEST(Engines, CopiedGroupsOutliveTheirOriginal) {
  CVynImage image = Shaped(4, 4, 2);
  Fill(image, [](int plane, int, int) { return plane ? 9.0f : 5.0f; });
  CFilterMatrix identity;
  identity.SetGaussianSigma(0.0);
  CFilterProcEx copy;
  EXPECT_EQ(copy.Calc(1, 1), 0.0f);
  {
    CFilterProcEx group;
    group.Make(&image, &identity, 0, 1);
    group.Make(&image, &identity, 1, 1);
    group.SetPln(1);
    copy = group;
  }
  EXPECT_EQ(copy.Calc(1, 1), 9.0f);
  copy.SetPln(-1);
  EXPECT_EQ(copy.Calc(1, 1), 5.0f);
}

TEST(Engines, StayInUseUntilCleared) {
  CVynImage owner;
  CVynImage image = Shaped(8, 8, 3);
  Fill(image, [](int plane, int x, int y) { return x == 4 && y == 4 ? 100.0f : static_cast<float>(plane); });
  CFilterMatrix identity, wide;
  identity.SetGaussianSigma(0.0);
  wide.SetGaussianSigma(1.0);
  EXPECT_EQ(owner.MakeFilterProc(&image, &identity, 0, 1), 1);
  EXPECT_EQ(owner.MakeFilterProc(&image, &wide, 0, 1), 1);
  EXPECT_EQ(owner.MakeFilterProc(&image, &identity, 2, 1), 1);
  EXPECT_EQ(owner.MakeFilterProc(&image, &identity, 3, 1), 0);
  EXPECT_EQ(owner.MakeFilterProc(&image, &identity, -1, 1), 0);
  EXPECT_EQ(owner.CalcFilterProc(4, 4, 0), 100.0f);
  owner.SetFilterProcPln(2);
  EXPECT_EQ(owner.CalcFilterProc(0, 0), 2.0f);
  owner.SetFilterProcPln(3);
  EXPECT_EQ(owner.CalcFilterProc(0, 0), 0.0f);
  EXPECT_EQ(owner.CalcFilterProc(4, 4, 1), 0.0f);
  EXPECT_EQ(owner.CalcFilterProc(4, 4, 7), 0.0f);

  EXPECT_EQ(owner.MakeFilterProcEx(5, &image, &wide, 1, 1), 1);
  EXPECT_EQ(owner.MakeFilterProcEx(6, &image, &wide, 1, 1), 0);
  EXPECT_EQ(owner.MakeFilterProcEx(5, &image, &wide, 3, 1), 0);
  owner.SetFilterProcPlnEx(5, 1);
  EXPECT_GT(owner.CalcFilterProcEx(5, 4, 4), 1.0f);
  EXPECT_LT(owner.CalcFilterProcEx(5, 4, 4), 100.0f);
  EXPECT_EQ(owner.CalcFilterProcEx(5, 4, 4), owner.CalcFilterProcEx(5, 4, 4, 1));
  EXPECT_EQ(owner.CalcFilterProcEx(0, 4, 4, 1), 0.0f);
  EXPECT_EQ(owner.CalcFilterProcEx(6, 4, 4), 0.0f);

  owner.ClearFilterProc();
  EXPECT_EQ(owner.CalcFilterProc(4, 4, 0), 0.0f);
  EXPECT_EQ(owner.CalcFilterProcEx(5, 4, 4, 1), 0.0f);
  owner.MakeFilterProc(&image, &wide, 0, 1);
  EXPECT_LT(owner.CalcFilterProc(4, 4, 0), 100.0f);
}

}  // namespace
}  // namespace qmr::test
