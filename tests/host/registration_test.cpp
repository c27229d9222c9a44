// Registration of synthetic frames whose geometry is known.
#include "host/night/registration/registration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

#include "qmrimg/geometry/interp.h"
#include "tests/support/images.h"
#include "tests/support/stars.h"

namespace qmr {
namespace {

constexpr int kWidth = 400;
constexpr int kHeight = 300;
constexpr double kNoise = 6.0;

// A field larger than the frame, so that a frame that has moved shows new stars.
std::vector<test::Star> Field(std::uint64_t seed) {
  test::Random random(seed);
  std::vector<test::Star> stars(260);
  for (test::Star& s : stars) {
    s = {random.Uniform(-120, kWidth + 120), random.Uniform(-120, kHeight + 120),
         std::min(8000.0, 120.0 / random.Uniform(0.01, 1.0))};
  }
  return stars;
}

// Draws what a frame of this geometry shows: round stars of `sigma` pixels on a sky with a gradient, with noise.
void Draw(CVynImage& image, std::vector<test::Star> stars, const FrameGeometry& g, std::uint64_t seed,
          double sigma = 1.4, double gain = 1.0) {
  test::Shape(image, kWidth, kHeight, 1);
  test::Random random(seed);
  const RigidMap map(g, kWidth, kHeight);
  for (test::Star& s : stars) {
    const Point p = map({s.x, s.y});
    s = {p.x, p.y, s.peak};
  }
  const std::vector<double> light = test::StarLight(kWidth, kHeight, stars, sigma);
  test::Fill(image, [&](int, int x, int y) {
    const double v = gain * light[static_cast<std::size_t>(y * kWidth + x)];
    const double noise = std::sqrt(kNoise * kNoise + v);
    return static_cast<float>(500.0 + 0.2 * x - 0.1 * y + v + noise * random.Normal());
  });
}

// Pixels of the detector that are bright in every frame, and a dead column.
void AddDetectorPattern(CVynImage& image) {
  test::Random random(77);
  for (int i = 0; i < 300; ++i) {
    image.SetPixelGrayRaw(random.Integer(0, kWidth - 1), random.Integer(0, kHeight - 1),
                          static_cast<float>(random.Uniform(1000, 20000)), 0);
  }
  for (int y = 0; y < kHeight; ++y) image.SetPixelGrayRaw(123, y, 0.0f, 0);
}

void AddTrail(CVynImage& image) {
  for (int x = 0; x < kWidth; ++x) {
    for (int o = -2; o <= 2; ++o) {
      const int y = 40 + x / 2 + o;
      image.SetPixelGrayRaw(x, y, test::At(image, 0, x, y) + static_cast<float>(2000.0 * std::exp(-o * o / 2.0)), 0);
    }
  }
}

double WorstCorner(const FrameGeometry& a, const FrameGeometry& b) {
  const RigidMap ma(a, kWidth, kHeight), mb(b, kWidth, kHeight);
  double worst = 0.0;
  for (const double x : {0.0, kWidth - 1.0}) {
    for (const double y : {0.0, kHeight - 1.0}) {
      const Point p = ma({x, y}), q = mb({x, y});
      worst = std::max(worst, std::hypot(p.x - q.x, p.y - q.y));
    }
  }
  return worst;
}

testing::AssertionResult Finds(const std::variant<Registration, std::string>& result, const FrameGeometry& truth,
                               double tolerance) {
  if (const auto* reason = std::get_if<std::string>(&result)) return testing::AssertionFailure() << *reason;
  const auto& r = std::get<Registration>(result);
  const double error = WorstCorner(r.geometry, truth);
  auto verdict = error <= tolerance ? testing::AssertionSuccess() : testing::AssertionFailure();
  return verdict << "corner error " << error << " at (" << r.geometry.dx << ", " << r.geometry.dy << "), "
                 << r.geometry.thetaDegrees << " degrees";
}

struct Case {
  const char* name;
  FrameGeometry truth;
  bool dirty = false;  // detector pattern on both frames, a trail on the second
  double sigma = 1.4;
  double gain = 1.0;
};

class MovedField : public testing::TestWithParam<Case> {};

TEST_P(MovedField, IsFoundToAFewHundredthsOfAPixel) {
  const Case& c = GetParam();
  const std::vector<test::Star> stars = Field(1);
  CVynImage reference, frame;
  Draw(reference, stars, {}, 2);
  Draw(frame, stars, c.truth, 3, c.sigma, c.gain);
  if (c.dirty) {
    AddDetectorPattern(reference);
    AddDetectorPattern(frame);
    AddTrail(frame);
  }
  const auto result = RegistrationReference(reference, AlignMode::kRotation).Measure(frame);
  ASSERT_TRUE(Finds(result, c.truth, 0.06));
  const auto& r = std::get<Registration>(result);
  // The error that it claims is of the size of the error that it makes.
  EXPECT_LT(std::hypot(r.geometry.dx - c.truth.dx, r.geometry.dy - c.truth.dy), 5.0 * r.shiftError);
  EXPECT_LT(r.shiftError, 0.02);
  EXPECT_GT(r.thetaError, 0.0);
  EXPECT_NEAR(r.scale, 1.0, 2e-4);
  EXPECT_GE(r.tiles, 20);
}

INSTANTIATE_TEST_SUITE_P(Geometries, MovedField,
                         testing::Values(Case{"Small", {0.37, -0.61, 0.02}}, Case{"Drift", {60.3, -41.7, 0.0}},
                                         Case{"Turned", {-12.4, 7.8, 1.0}}, Case{"DriftAndTurn", {-44.6, 38.2, -0.9}},
                                         Case{"MeridianFlip", {8.3, -5.2, 179.6}}, Case{"LargeTurn", {3.2, 4.1, 28.0}},
                                         Case{"HotPixelsAndTrail", {5.3, 9.6, 0.1}, true},
                                         Case{"OtherSeeing", {4.4, -2.7, 0.2}, false, 1.7},
                                         Case{"ShorterExposure", {-3.3, 6.9, -0.3}, false, 1.4, 0.3}),
                         [](const auto& info) { return info.param.name; });

TEST(Registration, IdenticalFramesLieOnEachOther) {
  CVynImage reference;
  Draw(reference, Field(1), {}, 2);
  const auto result = RegistrationReference(reference, AlignMode::kRotation).Measure(reference);
  ASSERT_TRUE(Finds(result, {}, 1e-3));
  EXPECT_GT(std::get<Registration>(result).peak, 0.99);
}

// The mean over many frames shows what a single frame's noise hides.
TEST(Registration, HasNoBias) {
  const std::vector<test::Star> stars = Field(4);
  CVynImage reference;
  Draw(reference, stars, {}, 100);
  const RegistrationReference registration(reference, AlignMode::kRotation);
  double sumX = 0.0, sumY = 0.0, claimed = 0.0;
  constexpr int kFrames = 16;
  for (int i = 0; i < kFrames; ++i) {
    const FrameGeometry truth{2.0 + i / 16.0, -1.0 + i * 3 / 16.0, 0.01 * i};
    CVynImage frame;
    Draw(frame, stars, truth, 200 + static_cast<std::uint64_t>(i), 1.3);
    const auto result = registration.Measure(frame);
    ASSERT_TRUE(Finds(result, truth, 0.06));
    const auto& r = std::get<Registration>(result);
    sumX += r.geometry.dx - truth.dx;
    sumY += r.geometry.dy - truth.dy;
    claimed = std::max(claimed, r.shiftError);
  }
  // The reference's own noise is common to all frames.
  EXPECT_LT(std::hypot(sumX, sumY) / kFrames, 2.0 * claimed);
}

TEST(Registration, ShiftModeKeepsTheAngle) {
  const std::vector<test::Star> stars = Field(1);
  CVynImage reference, frame;
  Draw(reference, stars, {}, 2);
  Draw(frame, stars, {7.25, -3.5, 0.0}, 3);
  const auto result = RegistrationReference(reference, AlignMode::kShift).Measure(frame);
  ASSERT_TRUE(Finds(result, {7.25, -3.5, 0.0}, 0.03));
  EXPECT_EQ(std::get<Registration>(result).geometry.thetaDegrees, 0.0);

  const auto none = RegistrationReference(reference, AlignMode::kNone).Measure(frame);
  EXPECT_TRUE(Finds(none, {}, 0.0));
}

TEST(Registration, ColourGoesByItsLuminanceAndHolesAreLeftOut) {
  const std::vector<test::Star> stars = Field(1);
  const FrameGeometry truth{4.6, 3.2, 0.25};
  CVynImage mono[2], colour[2];
  for (int i = 0; i < 2; ++i) {
    Draw(mono[i], stars, i ? truth : FrameGeometry{}, 20 + static_cast<std::uint64_t>(i));
    test::Shape(colour[i], kWidth, kHeight, 3);
    test::Fill(colour[i], [&](int plane, int x, int y) {
      if (i == 1 && (x / 40 + y / 40) % 5 == 0) return std::numeric_limits<float>::quiet_NaN();
      return test::At(mono[i], 0, x, y) * (plane == 0 ? 0.5f : plane == 1 ? 1.2f : 1.5f);
    });
  }
  EXPECT_TRUE(Finds(RegistrationReference(colour[0], AlignMode::kRotation).Measure(colour[1]), truth, 0.08));
}

// No star anywhere: an edge all around and some soft surface detail.
TEST(Registration, AlignsAPlanet) {
  const auto draw = [](CVynImage& image, double dx, double dy, std::uint64_t seed) {
    test::Shape(image, kWidth, kHeight, 1);
    test::Random random(seed);
    test::Fill(image, [&](int, int x, int y) {
      const double u = x - 250.0 - dx, v = y - 120.0 - dy, r = std::hypot(u, v * 1.07);
      const double belts = 140.0 + 25.0 * std::sin(v / 5.0) + 10.0 * std::sin(u / 9.0 + v / 13.0);
      return static_cast<float>(5.0 + belts / (1.0 + std::exp((r - 60.0) / 1.5)) + random.Normal());
    });
  };
  CVynImage reference, frame;
  draw(reference, 0.0, 0.0, 1);
  draw(frame, -71.4, 33.3, 2);
  EXPECT_TRUE(Finds(RegistrationReference(reference, AlignMode::kShift).Measure(frame), {-71.4, 33.3, 0.0}, 0.1));
}

TEST(Registration, RefusesWhatShowsNothingInCommon) {
  CVynImage stars, otherStars, empty, flat = test::Shaped(kWidth, kHeight, 1), small = test::Shaped(60, 300, 1);
  CVynImage noise = test::Noise(kWidth, kHeight, 1, 5), holes = test::Shaped(kWidth, kHeight, 1);
  Draw(stars, Field(1), {}, 2);
  Draw(otherStars, Field(99), {}, 2);
  test::Fill(holes, [](int, int, int) { return std::numeric_limits<float>::quiet_NaN(); });
  const std::pair<const CVynImage*, const CVynImage*> pairs[] = {
      {&stars, &otherStars}, {&stars, &flat},  {&stars, &noise}, {&stars, &holes}, {&flat, &stars},
      {&noise, &stars},      {&holes, &stars}, {&stars, &small}, {&small, &small}, {&empty, &empty}};
  for (const auto& [reference, frame] : pairs) {
    const auto result = RegistrationReference(*reference, AlignMode::kRotation).Measure(*frame);
    EXPECT_TRUE(std::holds_alternative<std::string>(result) && std::get<std::string>(result) != "")
        << "pair " << &reference - &pairs[0].first;
  }
}

TEST(Registration, GivesTheSameOnSeveralThreadsAtATime) {
  const std::vector<test::Star> stars = Field(1);
  CVynImage reference, frame;
  Draw(reference, stars, {}, 2);
  Draw(frame, stars, {6.1, -8.7, 0.4}, 3);
  const RegistrationReference registration(reference, AlignMode::kRotation);
  const auto alone = std::get<Registration>(registration.Measure(frame));
  Registration together[3];
  std::vector<std::thread> threads;
  for (Registration& r : together) {
    threads.emplace_back([&] { r = std::get<Registration>(registration.Measure(frame)); });
  }
  for (std::thread& t : threads) t.join();
  for (const Registration& r : together) {
    EXPECT_EQ(r.geometry.dx, alone.geometry.dx);
    EXPECT_EQ(r.geometry.dy, alone.geometry.dy);
    EXPECT_EQ(r.geometry.thetaDegrees, alone.geometry.thetaDegrees);
    EXPECT_EQ(r.shiftError, alone.shiftError);
  }
}

// The frame, read as the library reads it, must come to lie on the reference.
TEST(Registration, LibraryGeometryBringsTheFrameBack) {
  const std::vector<test::Star> stars = Field(1);
  for (const FrameGeometry& g : {FrameGeometry{14.3, -9.6, 7.0}, FrameGeometry{-6.2, 3.9, -163.0}}) {
    const LibraryGeometry library = ToLibrary(g);
    CVynImage frame;
    test::Shape(frame, kWidth, kHeight, 1);
    frame.SetStdCtr((kWidth - 1) / 2.0, (kHeight - 1) / 2.0);
    const double angle = library.angleDegrees * std::numbers::pi / 180.0;
    CInterp interp(0);
    interp.SetBParam(&frame, library.shiftX, library.shiftY, std::sin(angle), std::cos(angle), 1.0, 1, 0, -1.0f);
    const RigidMap map(g, kWidth, kHeight);
    for (const Point p : {Point{200, 150}, Point{90, 60}, Point{310, 222}}) {
      int outside = 0;
      double x = 0.0, y = 0.0;
      interp.GetBPixelGrayRaw(static_cast<int>(p.x), static_cast<int>(p.y), &outside, &x, &y);
      const Point expected = map(p);
      EXPECT_NEAR(x, expected.x, 1e-9);
      EXPECT_NEAR(y, expected.y, 1e-9);
    }
  }
}

}  // namespace
}  // namespace qmr
