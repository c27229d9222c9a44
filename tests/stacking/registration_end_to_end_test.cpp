// From two frames to one image: measured by correlation, combined by the stack.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "qmrimg/stacking/fourier.h"
#include "qmrimg/stacking/median_composit.h"
#include "tests/support/images.h"
#include "tests/support/stars.h"

namespace qmr::test {
namespace {

// Its weights add up to 1: the sky keeps its level, so that centroids are not
// drawn to the middle of their windows.
constexpr int kBicubic = 1;
constexpr double kNoise = 0.2;

struct Placement {
  double dx = 0.0, dy = 0.0, angle = 0.0;
};

void MeasureShift(CImgFourier& reference, CVynImage& frame, CRect square, Placement* found) {
  double peak = 0.0;
  int failWidth = 0, failHeight = 0;
  ASSERT_EQ(
      reference.CalcShiftByPOC(&frame, nullptr, 0.0, &square, found->dx, found->dy, peak, failWidth, failHeight, 0), 1);
  EXPECT_GT(peak, 0.05);
}

// The median of frames laid on a canvas of the size given, in strips of 37
// rows.
void Combine(const std::vector<CVynImage*>& frames, const std::vector<Placement>& at, int width, int height,
             CVynImage* result) {
  Shape(*result, width, height, 1);
  CImgMedianComposit stack(result, 0);
  for (int y = 0; y < height; y += 37) {
    for (std::size_t i = 0; i < frames.size(); ++i)
      ASSERT_EQ(stack.Store(frames[i], y, y + 36, at[i].dx, at[i].dy, at[i].angle, 0, 0, nullptr, kBicubic), 1);
    stack.Calc(y, y + 36);
  }
}

// The largest distance of a star's centroid from its place in the reference,
// over all stars at least `margin` pixels inside; each is divided by 1 + its
// distance from the middle * `perPixel`.
double LargestMiss(const CVynImage& image, const std::vector<Star>& stars, int margin, double perPixel) {
  const int width = image.GetWidth(), height = image.GetHeight();
  double largest = 0.0;
  int counted = 0;
  for (const Star& star : stars) {
    const double x = star.x + width * 0.5, y = star.y + height * 0.5;
    if (x < margin || y < margin || x > width - 1 - margin || y > height - 1 - margin) continue;
    double sum = 0.0, sumX = 0.0, sumY = 0.0;
    const int cx = static_cast<int>(std::lround(x)), cy = static_cast<int>(std::lround(y));
    for (int j = cy - 5; j <= cy + 5; ++j) {
      for (int i = cx - 5; i <= cx + 5; ++i) {
        const double v = At(image, 0, i, j) - kSkyLevel;
        sum += v;
        sumX += v * i;
        sumY += v * j;
      }
    }
    const double miss = std::hypot(sumX / sum - x, sumY / sum - y);
    largest = std::max(largest, miss / (1.0 + perPixel * std::hypot(star.x, star.y)));
    ++counted;
  }
  EXPECT_GT(counted, 50);
  return largest;
}

class MovedFrames : public testing::TestWithParam<Motion> {};

// The angle first, then the shift of the turned frame; both together bring the
// frame back.
TEST_P(MovedFrames, LieOnTheReference) {
  constexpr int kSide = 512;
  const Motion motion = GetParam();
  const std::vector<Star> stars = StarField(760, 4);
  CImgFourier reference;
  reference.CopyImage(SkyFrame(kSide, kSide, stars, {}, kNoise, 1));
  CVynImage frame = SkyFrame(kSide, kSide, stars, motion, kNoise, 2), turned, result;
  Placement at;
  int failWidth = 0, failHeight = 0;
  ASSERT_EQ(reference.CalcRotByRIPOC(&frame, nullptr, nullptr, nullptr, at.angle, failWidth, failHeight, 0), 1);
  EXPECT_NEAR(at.angle, motion.degrees, 0.1);
  Combine({&frame}, {{0.0, 0.0, at.angle}}, kSide, kSide, &turned);
  MeasureShift(reference, turned, CRect(128, 128, 384, 384), &at);
  Combine({&frame}, {at}, kSide, kSide, &result);
  // A tenth of a degree is 0.0018 pixels a pixel of distance from the middle.
  EXPECT_LT(LargestMiss(result, stars, 60, 0.0018 / 0.1), 0.1);
}

INSTANTIATE_TEST_SUITE_P(Motions, MovedFrames,
                         testing::Values(Motion{2.4, -1.7, 0.0}, Motion{3.0, -2.0, 0.0}, Motion{6.3, -4.8, 7.0},
                                         Motion{-5.0, 2.5, -7.0}));

}  // namespace
}  // namespace qmr::test
