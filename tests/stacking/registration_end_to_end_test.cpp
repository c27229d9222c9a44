// From two frames to one image: measured by correlation, combined by the stack.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "qmrimg/stacking/fourier.h"
#include "qmrimg/stacking/median_composit.h"
#include "tests/support/images.h"

namespace {

using qmr::test::At;
using qmr::test::Random;
using qmr::test::Shape;

constexpr double kPi = 3.14159265358979323846;
constexpr double kSky = 100.0;
// Its weights add up to 1: the sky keeps its level, so that centroids are not drawn to the middle of their windows.
constexpr int kBicubic = 1;

struct Star {
  double x, y, flux;  // from the middle of the image; the flux is the height of the peak
};

// Stars on a jittered grid, so that none lies within 12 pixels of another.
std::vector<Star> Field(double span, std::uint64_t seed) {
  Random random(seed);
  std::vector<Star> stars;
  for (double y = -span / 2; y < span / 2; y += 20.0) {
    for (double x = -span / 2; x < span / 2; x += 20.0) {
      const double dx = random.Uniform(-4.0, 4.0), dy = random.Uniform(-4.0, 4.0);
      stars.push_back({x + dx, y + dy, 40.0 + 260.0 * std::pow(random.Uniform(), 2)});
    }
  }
  return stars;
}

// How a frame lies against the reference: turned by `angle` degrees about its middle (counter-clockwise as it is
// seen, rows run downwards), then moved by (dx, dy).
struct Motion {
  double dx, dy, angle;
};

void Draw(CVynImage& image, int width, int height, const std::vector<Star>& stars, const Motion& motion,
          std::uint64_t seed) {
  Shape(image, width, height, 1);
  std::vector<double> pixels(static_cast<std::size_t>(width) * height, kSky);
  const double c = std::cos(motion.angle * kPi / 180.0), s = std::sin(motion.angle * kPi / 180.0);
  for (const Star& star : stars) {
    const double x = c * star.x + s * star.y + width * 0.5 + motion.dx;
    const double y = -s * star.x + c * star.y + height * 0.5 + motion.dy;
    for (int j = std::max(static_cast<int>(y) - 9, 0); j <= std::min(static_cast<int>(y) + 9, height - 1); ++j) {
      for (int i = std::max(static_cast<int>(x) - 9, 0); i <= std::min(static_cast<int>(x) + 9, width - 1); ++i) {
        const double r2 = (i - x) * (i - x) + (j - y) * (j - y);
        pixels[static_cast<std::size_t>(j) * width + i] += star.flux * std::exp(-0.5 * r2 / (1.5 * 1.5));
      }
    }
  }
  Random random(seed);
  qmr::test::Fill(image, [&](int, int x, int y) {
    return static_cast<float>(pixels[static_cast<std::size_t>(y) * width + x] + 0.2 * random.Normal());
  });
}

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

// The median of frames laid on a canvas of the size given, in strips of 37 rows.
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

// The largest distance of a star's centroid from its place in the reference, over all stars at least `margin` pixels
// inside; each is divided by 1 + its distance from the middle * `perPixel`.
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
        const double v = At(image, 0, i, j) - kSky;
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

}  // namespace

// Frames moved by whole and by broken pixels, on a canvas that is no power of two.
TEST(RegistrationEndToEnd, MovedFramesLieOnTheReference) {
  constexpr int kWidth = 340, kHeight = 290;
  const std::vector<Star> stars = Field(420, 3);
  CRect square((kWidth - 256) / 2, (kHeight - 256) / 2, (kWidth + 256) / 2, (kHeight + 256) / 2);
  CImgFourier reference;
  CVynImage whole, broken, result;
  Draw(reference, kWidth, kHeight, stars, {0.0, 0.0, 0.0}, 1);
  Draw(whole, kWidth, kHeight, stars, {3.0, -2.0, 0.0}, 2);
  Draw(broken, kWidth, kHeight, stars, {2.4, -1.7, 0.0}, 3);
  Placement onWhole, onBroken;
  MeasureShift(reference, whole, square, &onWhole);
  MeasureShift(reference, broken, square, &onBroken);
  EXPECT_NEAR(onWhole.dx, -3.0, 0.03);
  EXPECT_NEAR(onWhole.dy, 2.0, 0.03);
  EXPECT_NEAR(onBroken.dx, -2.4, 0.03);
  EXPECT_NEAR(onBroken.dy, 1.7, 0.03);

  const double noise = LargestMiss(reference, stars, 16, 0.0);
  Combine({&whole}, {onWhole}, kWidth, kHeight, &result);
  EXPECT_LT(LargestMiss(result, stars, 16, 0.0), noise + 0.03);
  Combine({&broken}, {onBroken}, kWidth, kHeight, &result);
  EXPECT_LT(LargestMiss(result, stars, 16, 0.0), noise + 0.03);
  Combine({&reference, &whole, &broken}, {{}, onWhole, onBroken}, kWidth, kHeight, &result);
  EXPECT_LT(LargestMiss(result, stars, 16, 0.0), noise + 0.03);
  // Stars of up to 300 above the sky: a shift of the wrong sign would differ by most of that.
  for (int y = 16; y < kHeight - 16; ++y) {
    for (int x = 16; x < kWidth - 16; ++x) ASSERT_NEAR(At(result, 0, x, y), At(reference, 0, x, y), 8.0);
  }
}

class TurnedFrames : public testing::TestWithParam<Motion> {};

// The angle first, then the shift of the turned frame; both together bring the frame back.
TEST_P(TurnedFrames, LieOnTheReference) {
  constexpr int kSide = 512;
  const Motion motion = GetParam();
  const std::vector<Star> stars = Field(760, 4);
  CImgFourier reference;
  CVynImage frame, turned, result;
  Draw(reference, kSide, kSide, stars, {0.0, 0.0, 0.0}, 1);
  Draw(frame, kSide, kSide, stars, motion, 2);
  Placement at;
  int failWidth = 0, failHeight = 0;
  ASSERT_EQ(reference.CalcRotByRIPOC(&frame, nullptr, nullptr, nullptr, at.angle, failWidth, failHeight, 0), 1);
  EXPECT_NEAR(at.angle, motion.angle, 0.1);
  Combine({&frame}, {{0.0, 0.0, at.angle}}, kSide, kSide, &turned);
  MeasureShift(reference, turned, CRect(128, 128, 384, 384), &at);
  Combine({&frame}, {at}, kSide, kSide, &result);
  // A tenth of a degree is 0.0018 pixels a pixel of distance from the middle.
  EXPECT_LT(LargestMiss(result, stars, 60, 0.0018 / 0.1), 0.1);
}

INSTANTIATE_TEST_SUITE_P(Motions, TurnedFrames,
                         testing::Values(Motion{0.0, 0.0, 7.0}, Motion{6.3, -4.8, 7.0}, Motion{-5.0, 2.5, -7.0}));
