#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "qmrimg/stacking/fft.h"
#include "qmrimg/stacking/fftd.h"
#include "qmrimg/stacking/fourier.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using qmr::test::At;
using qmr::test::Random;
using qmr::test::RecordingWindow;
using qmr::test::Shape;

constexpr double kPi = 3.14159265358979323846;

// A field of Gaussian stars, drawn at real positions; every rendering has noise of its own.
struct Sky {
  struct Star {
    double x, y, flux;
  };
  std::vector<Star> stars;

  // Spread over a square of `span` pixels about (0, 0).
  Sky(int count, double span, std::uint64_t seed) {
    Random random(seed);
    for (int i = 0; i < count; ++i) {
      const double x = random.Uniform(-0.5, 0.5) * span;
      stars.push_back({x, random.Uniform(-0.5, 0.5) * span, 200.0 * std::pow(random.Uniform(), 2) + 10.0});
    }
  }

  // The sky moved by (dx, dy) and turned by `angle` degrees, counter-clockwise as it is seen on screen (rows run
  // downwards), about the middle of the image.
  void Draw(CVynImage& image, int width, int height, double dx, double dy, double angle, double noise) const {
    Shape(image, width, height, 1);
    std::vector<double> pixels(static_cast<std::size_t>(width) * height, 100.0);
    const double c = std::cos(angle * kPi / 180.0), s = std::sin(angle * kPi / 180.0);
    for (const Star& star : stars) {
      const double x = c * star.x + s * star.y + width / 2 + dx, y = -s * star.x + c * star.y + height / 2 + dy;
      for (int j = static_cast<int>(y) - 8; j <= static_cast<int>(y) + 8; ++j) {
        for (int i = static_cast<int>(x) - 8; i <= static_cast<int>(x) + 8; ++i) {
          if (i < 0 || i >= width || j < 0 || j >= height) continue;
          const double r2 = (i - x) * (i - x) + (j - y) * (j - y);
          pixels[static_cast<std::size_t>(j) * width + i] += star.flux * std::exp(-0.5 * r2 / (1.3 * 1.3));
        }
      }
    }
    Random random(static_cast<std::uint64_t>(1e6 + 1000 * dx + 77 * dy + 13 * angle));
    qmr::test::Fill(image, [&](int, int x, int y) {
      return static_cast<float>(pixels[static_cast<std::size_t>(y) * width + x] + noise * random.Normal());
    });
  }
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

struct Displacement {
  double x, y;
};

class Shift : public testing::TestWithParam<Displacement> {};

// frame(p) = reference(p - d) is answered by -d.
TEST_P(Shift, IsMinusTheDisplacementOfTheFrame) {
  const auto [x, y] = GetParam();
  const Sky sky(150, 300, 4);
  CImgFourier reference;
  CVynImage frame;
  sky.Draw(reference, 256, 256, 0.0, 0.0, 0.0, 0.3);
  sky.Draw(frame, 256, 256, x, y, 0.0, 0.3);
  const Found found = Measure(reference, frame);
  EXPECT_EQ(found.result, 1);
  EXPECT_NEAR(found.dx, -x, 0.05);
  EXPECT_NEAR(found.dy, -y, 0.05);
  // Smoothing before the evaluation flattens the peak.
  const Found smoothed = Measure(reference, frame, 1.5);
  EXPECT_NEAR(smoothed.dx, -x, 0.4);
  EXPECT_NEAR(smoothed.dy, -y, 0.4);
  EXPECT_LT(smoothed.peak, found.peak);
}

INSTANTIATE_TEST_SUITE_P(Displacements, Shift,
                         testing::Values(Displacement{3, -2}, Displacement{-1, 0}, Displacement{0.5, 0.25},
                                         Displacement{-7.3, 4.6}, Displacement{20.25, 11.75}));

// What compositing does with the answer: the result at p is the frame at p - (dx, dy).
TEST(ShiftByPoc, TheFrameReadAtTheAnswerLiesOnTheReference) {
  const Sky sky(150, 300, 5);
  CImgFourier reference;
  CVynImage frame;
  sky.Draw(reference, 256, 256, 0.0, 0.0, 0.0, 0.0);
  sky.Draw(frame, 256, 256, 3.0, -2.0, 0.0, 0.0);
  const Found found = Measure(reference, frame);
  const int dx = static_cast<int>(std::lround(found.dx)), dy = static_cast<int>(std::lround(found.dy));
  for (int y = 20; y < 236; ++y) {
    for (int x = 20; x < 236; ++x) ASSERT_NEAR(At(frame, 0, x - dx, y - dy), At(reference, 0, x, y), 1e-3);
  }
}

TEST(ShiftByPoc, IdenticalFramesHaveTheirPeakInTheMiddle) {
  const Sky sky(100, 256, 6);
  CImgFourier reference;
  sky.Draw(reference, 256, 256, 0.0, 0.0, 0.0, 1.0);
  CVynImage surface;
  Shape(surface, 256, 256, 1);
  const Found found = Measure(reference, reference, 0.0, nullptr, &surface);
  EXPECT_LT(std::abs(found.dx), 0.003);
  EXPECT_LT(std::abs(found.dy), 0.003);
  EXPECT_NEAR(found.peak, 0.25, 0.001);  // a quarter of the frequencies survives
  EXPECT_EQ(At(surface, 0, 128, 128), static_cast<float>(found.peak));
}

TEST(ShiftByPoc, AwkwardSizesAndRectangles) {
  const Sky sky(200, 420, 7);
  CImgFourier reference;
  CVynImage frame;
  sky.Draw(reference, 300, 200, 0.0, 0.0, 0.0, 0.3);
  sky.Draw(frame, 300, 200, 2.5, -1.5, 0.0, 0.3);
  Found found = Measure(reference, frame);
  EXPECT_NEAR(found.dx, -2.5, 0.1);
  EXPECT_NEAR(found.dy, 1.5, 0.1);
  CRect middle(90, 40, 90 + 128, 40 + 128);
  CVynImage surface;
  Shape(surface, 300, 200, 1);
  qmr::test::Fill(surface, [](int, int, int) { return -5.0f; });
  found = Measure(reference, frame, 0.0, &middle, &surface);
  EXPECT_NEAR(found.dx, -2.5, 0.1);
  EXPECT_NEAR(found.dy, 1.5, 0.1);
  EXPECT_NE(At(surface, 0, 127, 127), -5.0f);
  EXPECT_EQ(At(surface, 0, 128, 0), -5.0f);  // beyond the array
  EXPECT_EQ(At(surface, 0, 0, 128), -5.0f);

  // Sides that are no powers of two, parts outside the image, outputs and frames of other shapes: nothing must leave
  // its memory, and something finite comes out.
  CVynImage small;
  sky.Draw(small, 70, 40, 0.0, 0.0, 0.0, 0.3);
  Shape(surface, 33, 500, 3);
  for (CRect rect : {CRect(-20, -30, 107, 120), CRect(250, 150, 450, 214), CRect(0, 0, 1, 1), CRect(5, 5, 300, 9)}) {
    found = Measure(reference, small, 0.0, &rect, &surface);
    EXPECT_EQ(found.result, 1);
    EXPECT_TRUE(std::isfinite(found.dx) && std::isfinite(found.dy));
    Measure(reference, small, 2.0, &rect, &surface);
  }
  EXPECT_EQ(Measure(reference, small, 0.0, nullptr, &surface).result, 1);
}

TEST(ShiftByPoc, FlatFramesStayWhereTheyAre) {
  CImgFourier flat;
  for (const float level : {0.0f, 60000.0f}) {
    Shape(flat, 128, 128, 1);
    qmr::test::Fill(flat, [&](int, int, int) { return level; });
    for (const double sigma : {0.0, 1.0}) {
      const Found found = Measure(flat, flat, sigma);
      EXPECT_NEAR(found.dx, 0.0, sigma > 0.0 ? 0.2 : 0.01) << level << ' ' << sigma;
      EXPECT_NEAR(found.dy, 0.0, sigma > 0.0 ? 0.2 : 0.01) << level << ' ' << sigma;
    }
  }
}

TEST(ShiftByPoc, DoesNotDependOnTheNumberOfThreads) {
  EXPECT_TRUE(qmr::test::SameForAllThreads([] {
    const Sky sky(100, 300, 8);
    CImgFourier reference;
    CVynImage frame, surface;
    sky.Draw(reference, 200, 130, 0.0, 0.0, 0.0, 1.0);
    sky.Draw(frame, 200, 130, 1.7, -0.4, 0.0, 1.0);
    Shape(surface, 256, 256, 1);
    const Found found = Measure(reference, frame, 0.0, nullptr, &surface);
    double angle = 0.0;
    int failWidth = 0, failHeight = 0;
    reference.CalcRotByRIPOC(&frame, nullptr, nullptr, nullptr, angle, failWidth, failHeight, 0);
    const double numbers[] = {found.dx, found.dy, found.peak, angle};
    return qmr::test::Bytes(surface) + std::string(reinterpret_cast<const char*>(numbers), sizeof(numbers));
  }));
}

TEST(ShiftByPoc, ReportsAndClosesItsReportAlsoOnFailure) {
  const Sky sky(50, 128, 9);
  RecordingWindow window;
  CImgFourier reference;
  sky.Draw(reference, 128, 128, 0.0, 0.0, 0.0, 1.0);
  reference.SetProgressHandle(&window);
  double dx = 0.0, dy = 0.0, peak = 0.0, angle = 0.0;
  int failWidth = -1, failHeight = -1;
  reference.CalcShiftByPOC(&reference, nullptr, 0.0, nullptr, dx, dy, peak, failWidth, failHeight, 0);
  EXPECT_TRUE(window.events.empty());
  reference.CalcShiftByPOC(&reference, nullptr, 0.0, nullptr, dx, dy, peak, failWidth, failHeight, 1);
  ASSERT_GT(window.events.size(), 30u);
  EXPECT_EQ(window.events.front().text, L"並進ずれ計算中...");
  EXPECT_EQ(window.events.back().code, qmr::kProgressEnd);
  const std::vector<int> percents = window.Percents();
  EXPECT_LE(*std::max_element(percents.begin(), percents.end()), 100);
  EXPECT_EQ(failWidth, -1);

  window.events.clear();
  CRect impossible(0, 0, 2000000000, 2000000000);
  EXPECT_EQ(reference.CalcRotByRIPOC(&reference, nullptr, nullptr, &impossible, angle, failWidth, failHeight, 1), 0);
  EXPECT_EQ(failWidth, 1 << 30);
  EXPECT_EQ(failHeight, 1 << 30);
  CRect reversed(40, 40, 10, 10);
  EXPECT_EQ(reference.CalcShiftByPOC(&reference, nullptr, 0, &reversed, dx, dy, peak, failWidth, failHeight, 1), 0);
  EXPECT_EQ(failWidth, 0);
  ASSERT_EQ(window.events.size(), 4u);
  EXPECT_EQ(window.events[0].text, L"回転ずれ計算中...");
  EXPECT_EQ(window.events[1].code, qmr::kProgressEnd);
  EXPECT_EQ(window.events[3].code, qmr::kProgressEnd);
}

class Rotation : public testing::TestWithParam<double> {};

TEST_P(Rotation, IsFoundInTheSenseOfTheTurn) {
  const double turn = GetParam();
  const Sky sky(600, 760, 10);
  CImgFourier reference;
  CVynImage frame, spectrum;
  sky.Draw(reference, 512, 512, 0.0, 0.0, 0.0, 0.3);
  sky.Draw(frame, 512, 512, 1.5, -2.0, turn, 0.3);
  Shape(spectrum, 512, 512, 1);
  double angle = 99.0;
  int failWidth = 0, failHeight = 0;
  ASSERT_EQ(reference.CalcRotByRIPOC(&frame, nullptr, &spectrum, nullptr, angle, failWidth, failHeight, 0), 1);
  // The polar centre lies half a pixel off the zero frequency, which shortens large angles by just under a percent.
  EXPECT_NEAR(angle, turn, std::max(0.1, 0.012 * std::abs(turn)));
  double low = 0.0, high = 0.0;
  spectrum.GetMinMax(0, &low, &high);
  EXPECT_GT(high, low);
}

INSTANTIATE_TEST_SUITE_P(Degrees, Rotation, testing::Values(0.0, 10.0, -10.0, 7.0, 3.3, -0.6, 40.0));

TEST(RotationByPoc, TheUnfinishedVariantGivesZero) {
  const Sky sky(300, 400, 11);
  CImgFourier reference;
  CVynImage frame, spectrum, surface;
  Shape(spectrum, 256, 128, 1);
  Shape(surface, 256, 128, 1);
  for (const int height : {128, 16}) {
    sky.Draw(reference, 256, height, 0.0, 0.0, 0.0, 0.3);
    sky.Draw(frame, 256, height, 0.0, 0.0, 5.0, 0.3);
    double angle = 99.0;
    int failWidth = 0, failHeight = 0;
    EXPECT_EQ(reference.CalcRotByRIPOC_1D(&frame, &spectrum, &surface, nullptr, angle, failWidth, failHeight, 0), 1);
    EXPECT_EQ(angle, 0.0);
  }
}

// A surface whose lines obey the model of the evaluation exactly, so that the position has no error of its own.
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
      double dx = 99.0, dy = 99.0, peak = 99.0;
      engine.PeakOfPOC(nullptr, nullptr, dx, dy, peak);
      EXPECT_NEAR(dx, -px, 1e-4);
      EXPECT_NEAR(dy, -py, 1e-4);
      double rowDx = 99.0;
      engine.PeakOfPOC1D(h / 2 + static_cast<int>(std::lround(py)), rowDx);
      EXPECT_NEAR(rowDx, -px, 1e-4);
      // The least-squares terms agree on that position one by one.
      const int at = w / 2 + static_cast<int>(std::lround(px)), row = h / 2 + static_cast<int>(std::lround(py));
      for (const int i : {1, 2, 3})
        EXPECT_NEAR(engine.v(0.5, at, row, i, 1), px * engine.u(0.5, at, row, i, 1), 1e-5) << i;
    }
  }
}

TEST(PeakEvaluation, TheFirstOfEqualMaximaWins) {
  for (const int threads : {1, 2, 5}) {
    const qmr::test::Threads scope(threads);
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
  for (const auto& [w, h] : {std::pair{16, 16}, {1, 16}, {2, 1}, {1, 1}}) {
    CFftd engine;
    ASSERT_EQ(engine.Create(w, h), 1);
    double dx = 99.0, dy = 99.0, peak = 99.0;
    engine.PeakOfPOC(nullptr, nullptr, dx, dy, peak);  // nothing above 0
    EXPECT_EQ(dx, 0.0);
    EXPECT_EQ(dy, 0.0);
    EXPECT_EQ(peak, 0.0);
    for (const int at : {0, w - 1, (h - 1) * w, w * h - 1}) {
      engine.Init();
      engine.GetImageAdr()[at].re = 1.0f;
      engine.PeakOfPOC(nullptr, nullptr, dx, dy, peak);
      EXPECT_TRUE(std::isfinite(dx) && std::isfinite(dy)) << w << ' ' << h << ' ' << at;
      EXPECT_EQ(peak, 1.0);
    }
    const int far = 1000000, below = -7;
    engine.PeakOfPOC(&far, &below, dx, dy, peak);
    EXPECT_TRUE(std::isfinite(dx) && std::isfinite(dy));
    const int last = std::numeric_limits<int>::max(), first = std::numeric_limits<int>::min();
    engine.PeakOfPOC(&last, &first, dx, dy, peak);
    EXPECT_TRUE(std::isfinite(dx) && std::isfinite(dy));
    EXPECT_TRUE(std::isfinite(engine.u(0.5, last, first, first, 1)) && std::isfinite(engine.v(0.5, 0, first, last, 0)));
    engine.PeakOfPOC1D(h, dx);
    engine.PeakOfPOC1D(-1, dx);
  }
}

TEST(CrossSpectrum, KeepsOnlyLowFrequenciesAndUnitMagnitudes) {
  CFftd engine;
  const int n = 32;
  ASSERT_EQ(engine.Create(n, n), 1);
  const auto fill = [&] {
    Random random(3);
    for (int i = 0; i < n * n; ++i) {
      engine.GetImageAdrA()[i] = dcomplex(1e15f * static_cast<float>(random.Uniform(-1, 1)), 1e15f);
      engine.GetImageAdrB()[i] = dcomplex(3e15f, 1e15f * static_cast<float>(random.Uniform(-1, 1)));
    }
    engine.GetImageAdrA()[1] = dcomplex();
  };
  for (const bool twoDimensional : {true, false}) {
    fill();
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
  const Sky sky(60, 64, 12);
  CVynImage images[2];
  sky.Draw(images[0], 64, 64, 0.0, 0.0, 0.0, 0.0);
  sky.Draw(images[1], 64, 64, 5.0, -3.0, 0.0, 0.0);
  CFft engine;
  ASSERT_EQ(engine.Create(64, 64), 1);
  complex* const arrays[] = {engine.GetImageAdrA(), engine.GetImageAdrB()};
  for (int i = 0; i < 2; ++i) {
    for (int at = 0; at < 64 * 64; ++at) arrays[i][at].re = At(images[i], 0, at % 64, at / 64) - 100.0f;
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
  CImgFourier image;
  Shape(image, 80, 50, 3);
  qmr::test::FillNoise(image, 2);
  CRect rect(10, 5, 10 + 64, 5 + 32);
  for (const int reIm : {0, 1}) {
    CVynImage parts[2];
    CImgFourier first, back;
    Shape(first, 64, 32, 3);
    Shape(parts[1], 64, 32, 3);
    Shape(back, 64, 32, 3);
    RecordingWindow window;
    image.SetProgressHandle(&window);
    ASSERT_EQ(image.Do(0, reIm, 0, nullptr, &first, &parts[1], &rect, 1), 1);
    EXPECT_EQ(window.events.front().text, L"フーリエ変換実行中...");
    // Zero frequency: the sum of the pixels, in the middle for amplitudes and at the corner otherwise.
    double sum = 0.0;
    for (int y = 5; y < 37; ++y) {
      for (int x = 10; x < 74; ++x) sum += At(image, 1, x, y);
    }
    EXPECT_NEAR(reIm ? At(first, 1, 0, 0) : At(first, 1, 32, 16), sum, sum * 1e-6);
    CRect whole(0, 0, 64, 32);
    ASSERT_EQ(first.Do(1, reIm, 0, &parts[1], &back, nullptr, &whole, 0), 1);
    for (int p = 0; p < 3; ++p) {
      for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 64; ++x) ASSERT_NEAR(At(back, p, x, y), At(image, p, x + 10, y + 5), 1e-3);
      }
    }
  }
  EXPECT_EQ(image.Do(0, 1, 0, nullptr, nullptr, nullptr, nullptr, 0), 0);
  EXPECT_EQ(image.DoLogPolar(nullptr, nullptr, 0, 0), 0);
}

// Their rows are shorter than rows of floats: they count as black, and as outputs they stay as they are.
TEST(FourierImage, ImagesOfAnotherSampleCodeAreNotTouched) {
  CImgFourier image;
  Shape(image, 64, 64, 1);
  qmr::test::FillNoise(image, 3);
  CVynImage words(16, 64, 64, 1, 1.0, 0.0, 1), real;
  const std::size_t bytes = 64 * sizeof(std::uint16_t);
  std::memset(words.GetImageAdr(0, 63, 0, 0, 0, nullptr), 0x5a, bytes);
  const std::vector<unsigned char> before(bytes, 0x5a);
  Shape(real, 64, 64, 1);
  CRect rect(0, 0, 64, 64);
  EXPECT_EQ(Measure(image, words, 0.0, nullptr, &words).result, 1);
  EXPECT_EQ(Measure(image, words, 0.0, &rect, &words).peak, 0.0);
  ASSERT_EQ(image.Do(0, 1, 0, &words, &real, &words, &rect, 0), 1);
  // Without an imaginary part the spectrum is symmetric.
  EXPECT_NEAR(At(real, 0, 5, 9), At(real, 0, 59, 55), 0.05);
  EXPECT_EQ(std::memcmp(words.GetImageAdr(0, 63, 0, 1, 0, nullptr), before.data(), bytes), 0);
}

TEST(FourierImage, WindowAndLogPolarReachEveryPlane) {
  CImgFourier image;
  Shape(image, 64, 64, 3);
  qmr::test::Fill(image, [](int p, int x, int y) {
    return static_cast<float>((p + 1) * std::exp(-0.02 * std::pow(std::hypot(x - 31.5, y - 31.5) - 20.0, 2)));
  });
  CRect rect(0, 0, 64, 64);
  CVynImage out;
  Shape(out, 64, 64, 3);
  ASSERT_EQ(image.DoLogPolar(&out, &rect, 0, 0), 1);
  // Rows of log radius from 5 to 31.5: the ring of radius 20 is a row of height p + 1.
  const int ring = static_cast<int>(std::lround(std::log(20.0 / 5.0) / std::log(31.5 / 5.0) * 64));
  for (int p = 0; p < 3; ++p) {
    for (int x = 0; x < 64; ++x) ASSERT_NEAR(At(out, p, x, ring), p + 1, 0.05 * (p + 1));
  }
  // Zero frequency of a windowed flat image: the sum of the weights.
  qmr::test::Fill(image, [](int p, int, int) { return static_cast<float>(p + 1); });
  ASSERT_EQ(image.Do(0, 1, 1, nullptr, &out, nullptr, &rect, 0), 1);
  double bell = 0.0;
  for (int y = 0; y < 64; ++y) {
    for (int x = 0; x < 64; ++x) {
      const double d = std::hypot(x - 32, y - 32);
      bell += d < 32 ? 0.5 * std::cos(kPi * d / 32) + 0.5 : 0.0;
    }
  }
  for (int p = 0; p < 3; ++p) EXPECT_NEAR(At(out, p, 0, 0), bell * (p + 1), bell * 1e-4);
}

}  // namespace
