// Shift and rotation by phase correlation, and the steps that they are made of.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "qmrimg/stacking/fft.h"
#include "qmrimg/stacking/fftd.h"
#include "qmrimg/stacking/fourier.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"
#include "tests/support/stars.h"

namespace qmr::test {
namespace {

constexpr double kPi = std::numbers::pi;

struct Frames {
  Frames(int width, int height, const Motion& motion, std::uint64_t seed, double noise = 0.3) {
    const std::vector<Star> field = StarField(1.5 * std::max(width, height), seed);
    reference.CopyImage(SkyFrame(width, height, field, {}, noise, 1));
    frame = SkyFrame(width, height, field, motion, noise, 2);
  }
  CImgFourier reference;
  CVynImage frame;
};

struct Found {
  int result = -1;
  double dx = 99.0, dy = 99.0, peak = 99.0;
};

Found Measure(CImgFourier& reference, CVynImage& frame, double sigma = 0.0, CRect* rect = nullptr,
              CVynImage* surface = nullptr) {
  Found found;
  int failWidth = 0, failHeight = 0;
  found.result =
      reference.CalcShiftByPOC(&frame, surface, sigma, rect, found.dx, found.dy, found.peak, failWidth, failHeight, 0);
  return found;
}

class Shift : public testing::TestWithParam<Motion> {};

// frame(p) = reference(p - d) is answered by -d.
TEST_P(Shift, IsMinusTheDisplacementOfTheFrame) {
  const Motion& d = GetParam();
  Frames f(256, 256, d, 4);
  const Found found = Measure(f.reference, f.frame);
  EXPECT_EQ(found.result, 1);
  EXPECT_NEAR(found.dx, -d.dx, 0.05);
  EXPECT_NEAR(found.dy, -d.dy, 0.05);
  // Smoothing before the evaluation flattens the peak.
  const Found smoothed = Measure(f.reference, f.frame, 1.5);
  EXPECT_NEAR(smoothed.dx, -d.dx, 0.4);
  EXPECT_NEAR(smoothed.dy, -d.dy, 0.4);
  EXPECT_LT(smoothed.peak, found.peak);
}

INSTANTIATE_TEST_SUITE_P(Displacements, Shift,
                         testing::Values(Motion{-1, 0}, Motion{0.5, 0.25}, Motion{-7.3, 4.6}, Motion{20.25, 11.75}));

TEST(ShiftByPoc, IdenticalFramesHaveTheirPeakInTheMiddle) {
  Frames f(256, 256, {}, 6, 1.0);
  CVynImage surface = Shaped(256, 256, 1);
  const Found found = Measure(f.reference, f.reference, 0.0, nullptr, &surface);
  EXPECT_LT(std::abs(found.dx), 0.003);
  EXPECT_LT(std::abs(found.dy), 0.003);
  EXPECT_NEAR(found.peak, 0.25, 0.001);  // a quarter of the frequencies survives
  EXPECT_EQ(At(surface, 0, 128, 128), static_cast<float>(found.peak));
}

TEST(ShiftByPoc, AwkwardSizesAndRectangles) {
  Frames f(300, 200, {2.5, -1.5}, 7);
  CRect middle(90, 40, 90 + 128, 40 + 128);
  CVynImage surface = Shaped(300, 200, 1);
  Fill(surface, [](int, int, int) { return -5.0f; });
  for (CRect* rect : {static_cast<CRect*>(nullptr), &middle}) {
    const Found found = Measure(f.reference, f.frame, 0.0, rect, rect ? &surface : nullptr);
    EXPECT_NEAR(found.dx, -2.5, 0.1);
    EXPECT_NEAR(found.dy, 1.5, 0.1);
  }
  EXPECT_NE(At(surface, 0, 127, 127), -5.0f);
  EXPECT_EQ(At(surface, 0, 128, 0), -5.0f);  // beyond the array
  EXPECT_EQ(At(surface, 0, 0, 128), -5.0f);

  // Sides that are no powers of two, parts outside the image, outputs and
  // frames of other shapes: nothing must leave its memory, and something finite
  // comes out.
  CVynImage small = Noise(70, 40, 1, 8);
  Shape(surface, 33, 500, 3);
  for (CRect rect : {CRect(-20, -30, 107, 120), CRect(250, 150, 450, 214), CRect(0, 0, 1, 1), CRect(5, 5, 300, 9)}) {
    for (const double sigma : {0.0, 2.0}) {
      const Found found = Measure(f.reference, small, sigma, &rect, &surface);
      EXPECT_EQ(found.result, 1);
      EXPECT_TRUE(std::isfinite(found.dx) && std::isfinite(found.dy));
    }
  }
}

TEST(ShiftByPoc, FlatFramesStayWhereTheyAre) {
  CImgFourier flat = Shaped<CImgFourier>(128, 128, 1);
  for (const float level : {0.0f, 60000.0f}) {
    Fill(flat, [&](int, int, int) { return level; });
    for (const double sigma : {0.0, 1.0}) {
      const Found found = Measure(flat, flat, sigma);
      EXPECT_NEAR(std::hypot(found.dx, found.dy), 0.0, sigma > 0.0 ? 0.2 : 0.01) << level << ' ' << sigma;
    }
  }
}

TEST(ShiftByPoc, DoesNotDependOnTheNumberOfThreads) {
  EXPECT_TRUE(SameForAllThreads([] {
    Frames f(200, 130, {1.7, -0.4}, 8);
    CVynImage surface = Shaped(256, 256, 1);
    const Found found = Measure(f.reference, f.frame, 0.0, nullptr, &surface);
    double angle = 0.0;
    int failWidth = 0, failHeight = 0;
    f.reference.CalcRotByRIPOC(&f.frame, nullptr, nullptr, nullptr, angle, failWidth, failHeight, 0);
    const double numbers[] = {found.dx, found.dy, found.peak, angle};
    return Bytes(surface) + std::string(reinterpret_cast<const char*>(numbers), sizeof(numbers));
  }));
}

TEST(ShiftByPoc, ClosesItsReportAlsoOnFailure) {
  RecordingWindow window;
  Frames f(128, 128, {}, 9);
  f.reference.SetProgressHandle(&window);
  double dx = 0.0, dy = 0.0, peak = 0.0, angle = 0.0;
  int failWidth = -1, failHeight = -1;
  CRect whole(0, 0, 128, 128), impossible(0, 0, 2000000000, 2000000000), reversed(40, 40, 10, 10);
  const auto shift = [&](CRect* rect) {
    return f.reference.CalcShiftByPOC(&f.frame, nullptr, 0.0, rect, dx, dy, peak, failWidth, failHeight, 1);
  };
  EXPECT_EQ(shift(&whole), 1);
  ASSERT_GT(window.events.size(), 30u);
  EXPECT_EQ(window.events.front().text, L"並進ずれ計算中...");
  EXPECT_EQ(window.events.back().code, kProgressEnd);
  const std::vector<int> percents = window.Percents();
  EXPECT_LE(*std::max_element(percents.begin(), percents.end()), 100);
  EXPECT_EQ(failWidth, -1);

  window.events.clear();
  EXPECT_EQ(f.reference.CalcRotByRIPOC(&f.frame, nullptr, nullptr, &impossible, angle, failWidth, failHeight, 1), 0);
  EXPECT_EQ(failWidth, 1 << 30);
  EXPECT_EQ(failHeight, 1 << 30);
  EXPECT_EQ(shift(&reversed), 0);
  EXPECT_EQ(failWidth, 0);
  ASSERT_EQ(window.events.size(), 4u);
  EXPECT_EQ(window.events[0].text, L"回転ずれ計算中...");
  EXPECT_EQ(window.events[1].code, kProgressEnd);
  EXPECT_EQ(window.events[3].code, kProgressEnd);
}

class Rotation : public testing::TestWithParam<double> {};

TEST_P(Rotation, IsFoundInTheSenseOfTheTurn) {
  const double turn = GetParam();
  Frames f(512, 512, {1.5, -2.0, turn}, 10);
  double angle = 99.0;
  int failWidth = 0, failHeight = 0;
  ASSERT_EQ(f.reference.CalcRotByRIPOC(&f.frame, nullptr, nullptr, nullptr, angle, failWidth, failHeight, 0), 1);
  // The polar centre lies half a pixel off the zero frequency, which shortens
  // large angles by just under a percent.
  EXPECT_NEAR(angle, turn, std::max(0.1, 0.012 * std::abs(turn)));
}

INSTANTIATE_TEST_SUITE_P(Degrees, Rotation, testing::Values(0.0, 10.0, -10.0, 3.3, -0.6, 40.0));

// Required as it is: callers may rely on the zero of the unfinished variant.
TEST(RotationByPoc, TheUnfinishedVariantGivesZero) {
  CVynImage spectrum = Shaped(256, 128, 1);
  for (const int height : {128, 16}) {
    Frames f(256, height, {0.0, 0.0, 5.0}, 11);
    double angle = 99.0;
    int failWidth = 0, failHeight = 0;
    EXPECT_EQ(f.reference.CalcRotByRIPOC_1D(&f.frame, &spectrum, &spectrum, nullptr, angle, failWidth, failHeight, 0),
              1);
    EXPECT_EQ(angle, 0.0);
  }
}

// A surface whose lines obey the model of the evaluation exactly, so that the
// position has no error of its own.
float BandLimited(double distance) {
  return static_cast<float>(distance == 0.0 ? 0.5 : std::sin(0.5 * kPi * distance) / (kPi * distance));
}

TEST(PeakEvaluation, FindsThePositionBetweenPixels) {
  for (const double px : {0.0, 0.3, -2.45, 10.5}) {
    for (const double py : {0.0, -0.7, 6.2}) {
      CFftd engine;
      const int w = 64, h = 32;
      ASSERT_EQ(engine.Create(w, h), 1);
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x)
          engine.GetImageAdr()[y * w + x].re = BandLimited(x - w / 2 - px) * BandLimited(y - h / 2 - py);
      }
      double dx = 99.0, dy = 99.0, peak = 99.0, rowDx = 99.0;
      engine.PeakOfPOC(nullptr, nullptr, dx, dy, peak);
      EXPECT_NEAR(dx, -px, 1e-4);
      EXPECT_NEAR(dy, -py, 1e-4);
      const int at = w / 2 + static_cast<int>(std::lround(px)), row = h / 2 + static_cast<int>(std::lround(py));
      engine.PeakOfPOC1D(row, rowDx);
      EXPECT_NEAR(rowDx, -px, 1e-4);
      // The least-squares terms agree on that position one by one.
      for (const int i : {1, 2, 3})
        EXPECT_NEAR(engine.v(0.5, at, row, i, 1), px * engine.u(0.5, at, row, i, 1), 1e-5) << i;
    }
  }
}

TEST(PeakEvaluation, TheFirstOfEqualMaximaWins) {
  for (const int threads : {1, 2, 5}) {
    const Threads scope(threads);
    CFftd engine;
    ASSERT_EQ(engine.Create(32, 32), 1);
    for (const int at : {20 * 32 + 3, 9 * 32 + 17, 9 * 32 + 20}) engine.GetImageAdr()[at].re = 1.0f;
    double dx = 0.0, dy = 0.0, peak = 0.0, nearX = 0.0, nearY = 0.0, nearPeak = 0.0;
    engine.PeakOfPOC(nullptr, nullptr, dx, dy, peak);
    const int x = 17, y = 9;
    engine.PeakOfPOC(&x, &y, nearX, nearY, nearPeak);
    EXPECT_EQ(dx, nearX);
    EXPECT_EQ(dy, nearY);
    EXPECT_NEAR(dy, 16 - 9, 0.5);
    EXPECT_EQ(peak, 1.0);
  }
}

TEST(PeakEvaluation, CornersEmptySurfacesAndSinglePixels) {
  constexpr int kLast = std::numeric_limits<int>::max(), kFirst = std::numeric_limits<int>::min();
  for (const auto& [w, h] : {std::pair{16, 16}, {1, 16}, {2, 1}, {1, 1}}) {
    CFftd engine;
    ASSERT_EQ(engine.Create(w, h), 1);
    double dx = 99.0, dy = 99.0, peak = 99.0;
    engine.PeakOfPOC(nullptr, nullptr, dx, dy, peak);  // nothing above 0
    EXPECT_TRUE(dx == 0.0 && dy == 0.0 && peak == 0.0);
    for (const int at : {0, w - 1, (h - 1) * w, w * h - 1}) {
      engine.Init();
      engine.GetImageAdr()[at].re = 1.0f;
      engine.PeakOfPOC(nullptr, nullptr, dx, dy, peak);
      EXPECT_TRUE(std::isfinite(dx) && std::isfinite(dy)) << w << ' ' << h << ' ' << at;
      EXPECT_EQ(peak, 1.0);
    }
    for (const auto& [x, y] : {std::pair{1000000, -7}, {kLast, kFirst}}) {
      engine.PeakOfPOC(&x, &y, dx, dy, peak);
      EXPECT_TRUE(std::isfinite(dx) && std::isfinite(dy));
      EXPECT_TRUE(std::isfinite(engine.u(0.5, x, y, y, 1)) && std::isfinite(engine.v(0.5, 0, y, x, 0)));
      engine.PeakOfPOC1D(y, dx);
    }
    engine.PeakOfPOC1D(h, dx);
  }
}

TEST(CrossSpectrum, KeepsOnlyLowFrequenciesAndUnitMagnitudes) {
  CFftd engine;
  const int n = 32;
  ASSERT_EQ(engine.Create(n, n), 1);
  for (const bool twoDimensional : {true, false}) {
    Random random(3);
    for (int i = 0; i < n * n; ++i) {
      engine.GetImageAdrA()[i] = dcomplex(1e15f * static_cast<float>(random.Uniform(-1, 1)), 1e15f);
      engine.GetImageAdrB()[i] = dcomplex(3e15f, 1e15f * static_cast<float>(random.Uniform(-1, 1)));
    }
    engine.GetImageAdrA()[1] = dcomplex();
    // conj(a) b, checked on one element; its squares are beyond a float.
    const dcomplex a = engine.GetImageAdrA()[2], b = engine.GetImageAdrB()[2];
    twoDimensional ? engine.CalcPOC() : engine.CalcPOC1D();
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        const dcomplex v = engine.GetImageAdrA()[y * n + x];
        const bool band = (x < 8 || x >= 24) && (!twoDimensional || y < 8 || y >= 24) && y * n + x != 1;
        ASSERT_NEAR(std::hypot(v.re, v.im), band ? 1.0 : 0.0, 1e-6) << x << ' ' << y;
      }
    }
    const double phase = std::atan2(b.im, b.re) - std::atan2(a.im, a.re);
    EXPECT_NEAR(engine.GetImageAdrA()[2].re, std::cos(phase), 1e-6);
    EXPECT_NEAR(engine.GetImageAdrA()[2].im, std::sin(phase), 1e-6);
  }
}

// The older engine measures the position itself, by the centre of gravity.
TEST(FftPeak, HasTheSignOfThePosition) {
  Frames f(64, 64, {5.0, -3.0}, 12, 0.0);
  CFft engine;
  ASSERT_EQ(engine.Create(64, 64), 1);
  for (int i = 0; i < 2; ++i) {
    complex* const array = i ? engine.GetImageAdrB() : engine.GetImageAdrA();
    const std::vector<float> pixels = Pixels(i ? f.frame : f.reference, 0);
    for (std::size_t at = 0; at < pixels.size(); ++at) array[at].re = pixels[at] - static_cast<float>(kSkyLevel);
    engine.Do(0, i);
  }
  engine.CalcPOC();
  engine.Do(1, 0);
  double dx = 0.0, dy = 0.0;
  engine.PeakOfPOC(dx, dy);
  EXPECT_NEAR(dx, 5.0, 1.0);
  EXPECT_NEAR(dy, -3.0, 1.0);
}

TEST(FourierImage, InverseGivesTheImageBackInBothForms) {
  CImgFourier image = Noise<CImgFourier>(80, 50, 3, 2);
  CRect rect(10, 5, 10 + 64, 5 + 32), whole(0, 0, 64, 32);
  RecordingWindow window;
  image.SetProgressHandle(&window);
  CVynImage expected = Shaped(64, 32, 3);
  double sum = 0.0;
  Fill(expected, [&](int p, int x, int y) {
    const float v = At(image, p, x + 10, y + 5);
    if (p == 1) sum += v;
    return v;
  });
  for (const int reIm : {0, 1}) {
    CImgFourier first = Shaped<CImgFourier>(64, 32, 3), back = Shaped<CImgFourier>(64, 32, 3);
    CVynImage second = Shaped(64, 32, 3);
    ASSERT_EQ(image.Do(0, reIm, 0, nullptr, &first, &second, &rect, 1), 1);
    EXPECT_EQ(window.events.front().text, L"フーリエ変換実行中...");
    // Zero frequency: the sum of the pixels, in the middle for amplitudes and
    // at the corner otherwise.
    EXPECT_NEAR(reIm ? At(first, 1, 0, 0) : At(first, 1, 32, 16), sum, sum * 1e-6);
    ASSERT_EQ(first.Do(1, reIm, 0, &second, &back, nullptr, &whole, 0), 1);
    EXPECT_TRUE(NearPixels(expected, back, 1e-3));
  }
  EXPECT_EQ(image.Do(0, 1, 0, nullptr, nullptr, nullptr, nullptr, 0), 0);
  EXPECT_EQ(image.DoLogPolar(nullptr, nullptr, 0, 0), 0);
}

// Their rows are shorter than rows of floats: they count as black, and as
// outputs they stay as they are.
TEST(FourierImage, ImagesOfAnotherSampleCodeAreNotTouched) {
  CImgFourier image = Noise<CImgFourier>(64, 64, 1, 3);
  CVynImage words(16, 64, 64, 1, 1.0, 0.0, 1), real = Shaped(64, 64, 1);
  const std::vector<unsigned char> before(64 * sizeof(std::uint16_t), 0x5a);
  std::memcpy(words.GetImageAdr(0, 63, 0, 0, 0, nullptr), before.data(), before.size());
  CRect rect(0, 0, 64, 64);
  EXPECT_EQ(Measure(image, words, 0.0, nullptr, &words).result, 1);
  EXPECT_EQ(Measure(image, words, 0.0, &rect, &words).peak, 0.0);
  ASSERT_EQ(image.Do(0, 1, 0, &words, &real, &words, &rect, 0), 1);
  // Without an imaginary part the spectrum is symmetric.
  EXPECT_NEAR(At(real, 0, 5, 9), At(real, 0, 59, 55), 0.05);
  EXPECT_EQ(std::memcmp(words.GetImageAdr(0, 63, 0, 1, 0, nullptr), before.data(), before.size()), 0);
}

TEST(FourierImage, WindowAndLogPolarReachEveryPlane) {
  CImgFourier image = Shaped<CImgFourier>(64, 64, 3);
  Fill(image, [](int p, int x, int y) {
    return static_cast<float>((p + 1) * std::exp(-0.02 * std::pow(std::hypot(x - 31.5, y - 31.5) - 20.0, 2)));
  });
  CRect rect(0, 0, 64, 64);
  CVynImage polar = Shaped(64, 64, 3), spectrum = Shaped(64, 64, 3);
  ASSERT_EQ(image.DoLogPolar(&polar, &rect, 0, 0), 1);
  Fill(image, [](int p, int, int) { return static_cast<float>(p + 1); });
  ASSERT_EQ(image.Do(0, 1, 1, nullptr, &spectrum, nullptr, &rect, 0), 1);
  // Rows of log radius from 5 to 31.5: the ring of radius 20 is a row of height
  // p + 1.
  const int ring = static_cast<int>(std::lround(std::log(20.0 / 5.0) / std::log(31.5 / 5.0) * 64));
  // The volume under the window's bell of radius 32.
  const double bell = 32.0 * 32.0 * (kPi / 2.0 - 2.0 / kPi);
  for (int p = 0; p < 3; ++p) {
    for (int x = 0; x < 64; ++x) ASSERT_NEAR(At(polar, p, x, ring), p + 1, 0.05 * (p + 1));
    EXPECT_NEAR(At(spectrum, p, 0, 0), bell * (p + 1), bell * 1e-3);
  }
}

}  // namespace
}  // namespace qmr::test
