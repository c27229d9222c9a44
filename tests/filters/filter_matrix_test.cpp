#include "qmrimg/filters/filter_matrix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace qmr::test {
namespace {

using testing::ElementsAre;
using testing::FloatNear;
using testing::Pointwise;

std::vector<float> Row(const CFilterMatrix& matrix, int y) {
  std::vector<float> row;
  for (int x = -matrix.GetRadius(); x <= matrix.GetRadius(); ++x) row.push_back(matrix.Get(x, y));
  return row;
}

std::vector<float> All(const CFilterMatrix& matrix) {
  std::vector<float> all;
  for (int i = 0; i < matrix.GetCount(); ++i) all.push_back(matrix.Get(i));
  return all;
}

int CountBelowZero(const CFilterMatrix& matrix) {
  int count = 0;
  for (const float v : All(matrix)) count += v < 0.0f;
  return count;
}

TEST(FilterMatrix, GaussianHasTheBellOfItsSigma) {
  CFilterMatrix matrix;
  ASSERT_EQ(matrix.SetGaussianSigma(0.5), 1);
  EXPECT_EQ(matrix.GetRadius(), 2);
  double sum = 0.0;
  for (const float v : All(matrix)) sum += v;
  EXPECT_NEAR(sum, 1.0, 1e-6);
  // exp(-d^2 / (2 * 0.25))
  EXPECT_NEAR(matrix.Get(1, 0) / matrix.Get(0, 0), std::exp(-2.0), 1e-7);
  EXPECT_NEAR(matrix.Get(-2, 1) / matrix.Get(0, 0), std::exp(-10.0), 1e-9);
  EXPECT_EQ(matrix.Get(2, -1), matrix.Get(-1, 2));
}

TEST(FilterMatrix, GaussianRadiusAndIdentity) {
  CFilterMatrix matrix;
  matrix.SetGaussianSigma(2.0);
  EXPECT_EQ(matrix.GetRadius(), 6);
  matrix.SetGaussianSigma(0.0);
  EXPECT_THAT(All(matrix), ElementsAre(0, 0, 0, 0, 1, 0, 0, 0, 0));
  // -1 is the kernel's own radius.
  CFilterMatrix own, given;
  own.SetGaussian(3, -1.0);
  given.SetGaussian(3, 3.0);
  EXPECT_EQ(All(own), All(given));
}

TEST(FilterMatrix, DiscsCompareWithTheSquareOfTheRadius) {
  CFilterMatrix matrix;
  EXPECT_EQ(matrix.SetDisc(1, 1.0), 5);
  EXPECT_EQ(matrix.SetDisc(2, -1.0), 13);
  EXPECT_EQ(matrix.SetDisc(2, 1.5), 9);
  EXPECT_EQ(matrix.SetDisc(2, 0.5), 1);
  ASSERT_EQ(matrix.SetWeightedDisc(1, 1.0, 0.5), 1);
  EXPECT_THAT(All(matrix),
              Pointwise(FloatNear(1e-7f), {0.f, 1 / 6.f, 0.f, 1 / 6.f, 1 / 3.f, 1 / 6.f, 0.f, 1 / 6.f, 0.f}));
  // Without weight the centre is all there is.
  matrix.SetWeightedDisc(1, 0.3, 0.0);
  EXPECT_THAT(All(matrix), ElementsAre(0, 0, 0, 0, 1, 0, 0, 0, 0));
}

TEST(FilterMatrix, LaplacianAndSharpenCompareWithTheLimitItself) {
  CFilterMatrix matrix;
  matrix.SetLaplacian(2, 4.0);
  EXPECT_EQ(matrix.Get(0, 0), 12.0f);
  EXPECT_EQ(CountBelowZero(matrix), 12);
  matrix.SetLaplacian(2, -1.0);
  EXPECT_EQ(matrix.Get(0, 0), 8.0f);
  EXPECT_EQ(matrix.Get(2, 0), 0.0f);

  matrix.SetSharpen(1.0, 1.0);
  EXPECT_THAT(All(matrix), ElementsAre(0, -1, 0, -1, 5, -1, 0, -1, 0));
  matrix.SetSharpen(-1.0, 1.0);
  EXPECT_EQ(CountBelowZero(matrix), 4);
  matrix.SetSharpen(2.0, 0.25);
  EXPECT_EQ(matrix.GetRadius(), 2);
  EXPECT_EQ(CountBelowZero(matrix), 8);
  EXPECT_FLOAT_EQ(matrix.Get(0, 0), 3.0f);
  matrix.SetSharpen(4.0, 1.0);
  EXPECT_EQ(CountBelowZero(matrix), 12);
  matrix.SetSharpen(0.3, 5.0);
  EXPECT_THAT(All(matrix), ElementsAre(0, 0, 0, 0, 1, 0, 0, 0, 0));
}

TEST(FilterMatrix, CfaCrossMarksTheNearestOfOneColour) {
  struct Case {
    int colour, bayer, radius;
    std::vector<int> ones;
  };
  const std::vector<int> corners5 = {0, 4, 20, 24}, straight5 = {2, 10, 14, 22};
  for (const Case& c : {Case{1, 1, 1, {0, 2, 6, 8}}, Case{0, 1, 2, straight5}, Case{2, 1, 2, straight5},
                        Case{1, 0, 2, straight5}, Case{0, 0, 2, corners5}, Case{2, 0, 2, corners5}}) {
    CFilterMatrix matrix;
    matrix.SetDisc(3, 9.0);
    ASSERT_EQ(matrix.SetCfaCross(c.colour, c.bayer), 4);
    EXPECT_EQ(matrix.GetRadius(), c.radius);
    std::vector<float> expected(static_cast<std::size_t>(matrix.GetCount()), 0.0f);
    for (const int i : c.ones) expected[static_cast<std::size_t>(i)] = 1.0f;
    EXPECT_EQ(All(matrix), expected) << "colour " << c.colour << ", bayer " << c.bayer;
    EXPECT_EQ(matrix.SetCfaCross(3, c.bayer), 0);
    EXPECT_EQ(All(matrix), expected);
  }
}

TEST(FilterMatrix, LineLiesAtItsAngle) {
  CFilterMatrix matrix;
  matrix.SetLine(1, -1.0, 90.0, 1.0);
  EXPECT_THAT(All(matrix), Pointwise(FloatNear(1e-6f), {0.f, 0.f, 0.f, -1.f, 3.f, -1.f, 0.f, 0.f, 0.f}));
  matrix.SetLine(1, 1.0, 0.0, 1.0);
  EXPECT_THAT(All(matrix), Pointwise(FloatNear(1e-6f), {0.f, -1.f, 0.f, 0.f, 3.f, 0.f, 0.f, -1.f, 0.f}));
  // Beyond the radius the leftmost cell has the fraction of the length, and only that one.
  matrix.SetLine(2, 2.25, 90.0, 1.0);
  EXPECT_THAT(Row(matrix, 0), Pointwise(FloatNear(1e-6f), {0.25f, -1.f, 3.75f, -1.f, -1.f}));
  // The weight scales the centre before the division by the sum: (-2 + 3 * 2) here.
  matrix.SetLine(1, 1.0, 90.0, 2.0);
  EXPECT_THAT(Row(matrix, 0), Pointwise(FloatNear(1e-6f), {-0.25f, 1.5f, -0.25f}));
  // Angles turn from the right upwards. The straight neighbours at 45 degrees take 3 (1 - u)^2 - u (1 - u) of the
  // line, u = 1 / sqrt 2.
  matrix.SetLine(1, 1.0, 45.0, 1.0);
  const float side = 0.0502525f;
  EXPECT_THAT(All(matrix),
              Pointwise(FloatNear(1e-5f), {0.f, side, -1.f, side, 3.f - 4.f * side, side, -1.f, side, 0.f}));
}

TEST(FilterMatrix, ValuesAndBounds) {
  const float ramp[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  const double part[4] = {0.1, 0.2, 0.3, 0.4};
  CFilterMatrix matrix(1, ramp, 0);
  EXPECT_EQ(matrix.Get(0, 1), 8.0f);
  EXPECT_EQ(matrix.Get(-1, -1), 1.0f);
  // Only the index is tested: one column beyond the radius is the next row's first.
  EXPECT_EQ(matrix.Get(2, 0), 7.0f);
  EXPECT_EQ(matrix.At(2, 1), nullptr);
  EXPECT_EQ(matrix.At(0, -2), nullptr);
  EXPECT_EQ(matrix.Get(9), 0.0f);
  EXPECT_EQ(matrix.Get(-1), 0.0f);
  matrix.Normalize();
  EXPECT_FLOAT_EQ(matrix.Get(1, 1), 0.2f);

  EXPECT_EQ(matrix.SetValues(1, part, 4), 1);
  EXPECT_THAT(All(matrix), ElementsAre(0.1f, 0.2f, 0.3f, 0.4f, 0, 0, 0, 0, 0));
  EXPECT_EQ(matrix.SetValues(1, ramp, 10), 0);
  EXPECT_EQ(matrix.GetCount(), 9);
  EXPECT_EQ(matrix.Alloc(2, 25, 1), 1);
  EXPECT_EQ(matrix.Alloc(2, 26, 1), 0);
  EXPECT_EQ(matrix.Alloc(-3, 0, 1), 1);
  EXPECT_EQ(matrix.GetCount(), 1);
}

}  // namespace
}  // namespace qmr::test
