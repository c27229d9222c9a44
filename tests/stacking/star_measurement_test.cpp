// Widths of stars, statistics of pixels and the focus score: worked examples, literal references, and stars and noise
// whose truth is known.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/stacking/evaluate_focus.h"
#include "qmrimg/stacking/pixel_info.h"
#include "qmrimg/stacking/psf.h"
#include "qmrimg/store/registry.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// Settings for the length of a scope, in a file of this process: tests run side by side.
class Settings {
 public:
  explicit Settings(const std::string& text)
      : path_(testing::TempDir() + "star_settings_" + std::to_string(getpid()) + ".ini") {
    std::ofstream(path_) << text;
    SetSettingsFile(path_);
  }
  ~Settings() {
    SetSettingsFile("");
    std::remove(path_.c_str());
  }

 private:
  const std::string path_;
};

// A field of equal Gaussian stars integrated over the pixels, one in the middle of each cell give or take a random
// part of a pixel; the brightest pixel of a centred one is `peak`.
constexpr int kCell = 60, kStarsAcross = 12;
template <class Image>
Image StarCells(double fwhm, double peak, double sky, double noise, std::uint64_t seed) {
  Random random(seed);
  const double scale = 1.0 / (fwhm / 2.354820045 * std::sqrt(2.0));
  const auto share = [scale](double from) {
    return 0.5 * (std::erf((from + 0.5) * scale) - std::erf((from - 0.5) * scale));
  };
  std::vector<double> centres(2 * kStarsAcross * kStarsAcross);
  for (double& c : centres) c = kCell / 2 + random.Uniform(-0.5, 0.5);
  Image image;
  Shape(image, kCell * kStarsAcross, kCell * kStarsAcross, 1);
  Fill(image, [&](int, int x, int y) {
    const double* centre = &centres[static_cast<std::size_t>(2 * (y / kCell * kStarsAcross + x / kCell))];
    const double light = share(x % kCell - centre[0]) * share(y % kCell - centre[1]) / (share(0.0) * share(0.0));
    return static_cast<float>(sky + peak * light + noise * random.Normal());
  });
  return image;
}

struct Result {
  double max[3], min[3], mean[3], sd[3], median[3];
};

// ---- PSF ------------------------------------------------------------------------------------------------------------

// A star whose background lies on its left alone: behind the rise at x = 15, two pixels on, twelve pixels.
CVynImage WorkedStar() {
  CVynImage image = Shaped(41, 41, 1);
  Fill(image, [](int, int x, int y) {
    if (y == 20) {
      constexpr float kRow[] = {-50, -50, 20, 20,  20, 20, 20, 20, 10, 10,  10,
                                10,  10,  10, -50, 12, 10, 10, 30, 80, 110, 40};
      if (x < 22) return kRow[x];
    }
    if (x == 20 && y == 19) return 65.0f;
    if (x == 20 && y == 21) return 90.0f;
    if (x == 20 && y == 22) return 65.0f;
    return 10.0f;
  });
  return image;
}

TEST(Psf, WidthOfAWorkedStar) {
  CVynImage image = WorkedStar();
  PSF psf(&image);
  double value = -1.0;
  EXPECT_EQ(psf.GetMeanPSF(&value), 0);
  EXPECT_EQ(psf.GetMedianFWHM(&value), 0);
  EXPECT_EQ(value, -1.0);
  // Base 20 (the upper middle of six tens and six twenties), half level 65: left 18.7, right 21 - 25 / 70, up 19, down
  // 22. Both the peak and its shoulder lead there.
  const double fwhm = ((21.0 - 25.0 / 70.0 - 18.7) + 3.0) / 2.0;
  EXPECT_EQ(psf.Add(CPoint(20, 20)), 1);
  EXPECT_EQ(psf.Add(CPoint(18, 21)), 1);
  EXPECT_EQ(psf.GetCount(), 2);
  EXPECT_EQ(psf.GetMeanPSF(&value), 1);
  EXPECT_NEAR(value, std::sqrt(fwhm) * 0.4246609, 1e-12);
  EXPECT_EQ(psf.GetMeanFWHM(&value), 1);
  EXPECT_NEAR(value, fwhm, 1e-6);
  EXPECT_EQ(psf.GetMedianFWHM(nullptr), 1);
}

TEST(Psf, MedianIsTheUpperMiddleInTheFormOfTheRoot) {
  CVynImage image = WorkedStar();
  for (int y = 17; y < 24; ++y) {
    // The same star with wider flanks, lower down.
    for (int x = 0; x < 41; ++x) image.SetPixelGrayRaw(x, y + 14, image.GetPixelGrayRaw(x, y, 0), 0);
  }
  image.SetPixelGrayRaw(18, 34, 70.0f, 0);
  PSF psf(&image);
  ASSERT_EQ(psf.Add(CPoint(20, 34)), 1);
  double wide, narrow, value;
  psf.GetMeanPSF(&wide);
  ASSERT_EQ(psf.Add(CPoint(20, 20)), 1);
  psf.GetMedianPSF(&value);
  EXPECT_EQ(value, wide);
  PSF other(&image);
  other.Add(CPoint(20, 20));
  other.GetMeanPSF(&narrow);
  ASSERT_LT(narrow, wide);
  psf.GetMeanFWHM(&value);
  EXPECT_NEAR(value, std::pow((wide + narrow) / 2.0 * 2.354820045829508, 2), 1e-12);
}

TEST(Psf, NoStarGivesNothing) {
  CVynImage flat = Shaped(30, 30, 1), tiny = Shaped(1, 1, 3), border = WorkedStar(), broken = WorkedStar();
  CVynImage rising = Shaped(9, 9, 1);
  Fill(rising, [](int, int x, int y) { return static_cast<float>(x + y); });
  // On the border there is no half level on one side.
  for (int x = 0; x < 41; ++x) border.SetPixelGrayRaw(x, 0, border.GetPixelGrayRaw(x, 20, 0), 0);
  broken.SetPixelGrayRaw(20, 20, std::numeric_limits<float>::infinity(), 0);
  for (const auto& [image, at] :
       {std::pair{&flat, CPoint(15, 15)}, std::pair{&tiny, CPoint(0, 0)}, std::pair{&border, CPoint(20, 0)},
        std::pair{&broken, CPoint(20, 20)}, std::pair{&rising, CPoint(4, 4)}, std::pair{&flat, CPoint(-1, -1)},
        std::pair{&flat, CPoint(2147483647, -2147483647 - 1)}}) {
    EXPECT_EQ(PSF(image).Add(at), 0);
  }
  EXPECT_EQ(PSF(nullptr).Add(CPoint(0, 0)), 0);
}

TEST(Psf, GreatestWidthIsASetting) {
  CVynImage image = StarCells<CVynImage>(26.0, 20000.0, 100.0, 1.0, 3);
  const CPoint middle(kCell / 2, kCell / 2);
  EXPECT_EQ(PSF(&image).Add(middle), 0);
  const Settings settings("[Psf]\nMax = 40\n");
  EXPECT_EQ(PSF(&image).Add(middle), 1);
}

TEST(Psf, WidthsOfKnownStars) {
  // What straight lines between the pixels of a Gaussian give without noise, averaged and as a median over all places
  // within a pixel, computed apart. Pixels.
  struct Known {
    double fwhm, mean, median;
  };
  for (const Known& known :
       {Known{0.8, 1.359, 1.346}, Known{1.5, 1.827, 1.830}, Known{3.0, 3.177, 3.172}, Known{8.0, 8.066, 8.065}}) {
    // Noise of 0.05 % and of 1 % of the brightest pixel.
    for (const auto& [noise, tolerance] : {std::pair{1.0, 0.02}, std::pair{20.0, 0.08}}) {
      auto image = StarCells<CImgPixelInfo>(known.fwhm, 2000.0, 500.0, noise, 11);
      PSF psf(&image);
      double diameters = 0.0;
      for (int i = 0; i < kStarsAcross * kStarsAcross; ++i) {
        const int x = i % kStarsAcross * kCell + kCell / 2, y = i / kStarsAcross * kCell + kCell / 2;
        EXPECT_EQ(psf.Add(CPoint(x, y)), 1);
        double reserved = -1.0, diameter = 0.0;
        Result r;
        image.CalcStar(x, y, 25, 0.5, 0.5, r.max, r.min, r.mean, r.sd, r.median, &reserved, &diameter);
        EXPECT_EQ(reserved, 0.0);
        diameters += diameter;
      }
      double mean = 0.0, median = 0.0;
      psf.GetMeanFWHM(&mean);
      psf.GetMedianFWHM(&median);
      EXPECT_NEAR(mean, known.mean, tolerance) << known.fwhm << " " << noise;
      EXPECT_NEAR(median, known.median, tolerance) << known.fwhm << " " << noise;
      // The disc of as many pixels as lie above half is as wide as the star.
      EXPECT_NEAR(diameters / psf.GetCount(), known.mean, 0.08) << known.fwhm << " " << noise;
    }
  }
}

// ---- CImgPixelInfo --------------------------------------------------------------------------------------------------

CImgPixelInfo Numbers(int width, int height, int planes) {
  CImgPixelInfo image;
  Shape(image, width, height, planes);
  Fill(image, [=](int p, int x, int y) { return static_cast<float>(y * width + x + 1 + 1000 * p); });
  return image;
}

void ExpectResult(const Result& r, int plane, std::vector<double> values) {
  const double got[] = {r.max[plane], r.min[plane], r.mean[plane], r.sd[plane], r.median[plane]};
  for (int i = 0; i < 5; ++i) EXPECT_NEAR(got[i], values[static_cast<std::size_t>(i)], 1e-9) << i;
}

TEST(PixelInfo, WorkedBands) {
  CImgPixelInfo ten = Numbers(5, 2, 1);
  Result r;
  const CRect all(-7, -1, 50, 50);
  const auto sky = [&](double upper, double lower) {
    ten.CalcSky(all, upper, lower, r.max, r.min, r.mean, r.sd, r.median);
  };
  ten.CalcSky(all, r.max, r.min, r.mean, r.sd, r.median);
  ExpectResult(r, 0, {5, 1, 3, std::sqrt(2.0), 3});
  sky(0.5, 0.2);
  ExpectResult(r, 0, {8, 5, 6.5, std::sqrt(1.25), 7});
  // The least band is the two pixels from the median on.
  for (const auto& [upper, lower] : {std::pair{0.0, 0.0}, std::pair{-9.0, -9.0}}) {
    sky(upper, lower);
    ExpectResult(r, 0, {7, 6, 6.5, 0.5, 7});
  }
  sky(1.0, 1.0);
  ExpectResult(r, 0, {10, 1, 5.5, std::sqrt(8.25), 6});
  sky(std::numeric_limits<double>::infinity(), 1e300);
  ExpectResult(r, 0, {10, 1, 5.5, std::sqrt(8.25), 6});
  sky(kNan, kNan);
  ExpectResult(r, 0, {7, 1, 4, 2, 4});
  // Of one pixel and two, and of none, by halves and as a band.
  struct Few {
    CRect rect;
    double half, band;
  };
  for (const auto& [rect, half, band] :
       {Few{CRect(2, 1, 3, 2), 8, 8}, Few{CRect(2, 1, 4, 2), 8, 9}, Few{CRect(9, 9, 10, 10), 0, 0},
        Few{CRect(3, 3, 2, 2), 0, 0}, Few{CRect(1, 1, 1, 5), 0, 0}}) {
    ten.CalcSky(rect, r.max, r.min, r.mean, r.sd, r.median);
    ExpectResult(r, 0, {half, half, half, 0, half});
    ten.CalcSky(rect, 0.0, 0.0, r.max, r.min, r.mean, r.sd, r.median);
    ExpectResult(r, 0, {band, band, band, 0, band});
  }
  // A pixel doesn't deviate from itself.
  ten.SetPixelGrayRaw(0, 0, std::numeric_limits<float>::infinity(), 0);
  ten.Calc(CRect(0, 0, 1, 1), r.max, r.min, r.mean, r.sd, nullptr);
  EXPECT_EQ(r.sd[0], 0.0);
}

TEST(PixelInfo, CirclesReadFromTheLeftEdgeOfTheirSquare) {
  CImgPixelInfo image = Numbers(9, 9, 3);
  Result r;
  double reserved[3], diameter[3];
  // Three pixels in each of three rows about (4, 4), but columns 2 to 4 and not 3 to 5.
  image.CalcSky(4, 4, 2, 1.0, 1.0, r.max, r.min, r.mean, r.sd, r.median);
  ExpectResult(r, 2, {2050, 2030, 2040, std::sqrt(54 + 2.0 / 3.0), 2040});
  image.CalcStar(4, 4, 1, 1.0, 1.0, r.max, r.min, r.mean, r.sd, r.median, reserved, diameter);
  ExpectResult(r, 0, {40, 40, 40, 0, 40});
  EXPECT_EQ(diameter[1], 0.0);
  // Cut by the corner: rows 0 and 1 give two pixels each.
  image.CalcStar(0, 0, 2, 1.0, 1.0, r.max, r.min, r.mean, r.sd, r.median, reserved, diameter);
  ExpectResult(r, 0, {11, 1, 6, std::sqrt(20.5), 10});
  for (const int radius : {0, -5, std::numeric_limits<int>::min()}) {
    image.CalcStar(4, 4, radius, 1.0, 1.0, r.max, r.min, r.mean, r.sd, r.median, reserved, diameter);
    ExpectResult(r, 0, {0, 0, 0, 0, 0});
  }
  image.CalcStar(2147483647, 2147483647, 2147483647, 1.0, 1.0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                 nullptr);
}

TEST(PixelInfo, StatisticsAgainstALiteralReference) {
  struct Size {
    int width, height;
  };
  for (const auto& [width, height] : {Size{1, 1}, Size{1, 7}, Size{7, 1}, Size{2, 2}, Size{13, 9}, Size{170, 150}}) {
    auto image = Noise<CImgPixelInfo>(width, height, 3, 5, -100.0, 300.0);
    image.SetPixelGrayRaw(width / 2, 0, -7.0f, 1);
    for (const CRect& rect :
         {CRect(0, 0, width, height), CRect(-3, 1, width - 1, 1000), CRect(width / 2, 0, width / 2 + 1, 1)}) {
      std::vector<double> values;
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          if (x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom)
            values.push_back(At(image, 1, x, y));
        }
      }
      Result r;
      image.Calc(rect, r.max, r.min, r.mean, r.sd, r.median);
      if (values.empty()) {
        ExpectResult(r, 1, {0, 0, 0, 0, 0});
        continue;
      }
      std::sort(values.begin(), values.end());
      const double n = static_cast<double>(values.size());
      const double mean = std::accumulate(values.begin(), values.end(), 0.0) / n;
      double squares = 0.0;
      for (const double v : values) squares += (v - mean) * (v - mean);
      ExpectResult(r, 1, {values.back(), values[0], mean, std::sqrt(squares / n), values[values.size() / 2]});
      // The band of everything is everything, sorted.
      Result sky;
      image.CalcSky(rect, 1.0, 1.0, sky.max, sky.min, sky.mean, sky.sd, sky.median);
      ExpectResult(sky, 1, {r.max[1], r.min[1], r.mean[1], r.sd[1], r.median[1]});
    }
  }
  // About a point: 2 * (size / 2) + 1 pixels wide.
  CImgPixelInfo numbers = Numbers(9, 9, 1);
  Result r;
  numbers.Calc(CPoint(4, 4), 4, r.max, r.min, r.mean, r.sd, nullptr);
  EXPECT_EQ(r.min[0], 2 * 9 + 3);
  EXPECT_EQ(r.max[0], 6 * 9 + 7);
  // Not-a-number is no extreme, and the greatest where pixels are sorted.
  numbers.SetPixelGrayRaw(0, 0, kNan, 0);
  numbers.Calc(CRect(0, 0, 3, 1), r.max, r.min, r.mean, r.sd, r.median);
  EXPECT_EQ(r.min[0], 2.0);
  EXPECT_EQ(r.median[0], 3.0);
  EXPECT_TRUE(std::isnan(r.mean[0]));
  EXPECT_TRUE(SameForAllThreads([] {
    auto image = Noise<CImgPixelInfo>(301, 97, 3, 8);
    Result all;
    image.Calc(CRect(0, 0, 301, 97), all.max, all.min, all.mean, all.sd, all.median);
    return std::string(reinterpret_cast<const char*>(&all), sizeof all);
  }));
}

// The parts of normal noise that a sky keeps have known means and deviations. Half of the pixels lie within 0.6745
// deviations of the median.
TEST(PixelInfo, SkyOfKnownNoise) {
  constexpr double kLevel = 800.0, kNoise = 12.0;
  Random random(17);
  auto image = Shaped<CImgPixelInfo>(300, 300, 1);
  Fill(image, [&](int, int, int) { return static_cast<float>(kLevel + kNoise * random.Normal()); });
  const CRect all(0, 0, 300, 300);
  Result r;
  image.CalcSky(all, 0.5, 0.5, r.max, r.min, r.mean, r.sd, r.median);
  EXPECT_NEAR(r.mean[0], kLevel, 0.02 * kNoise);
  EXPECT_NEAR(r.sd[0], 0.3776 * kNoise, 0.01 * kNoise);
  EXPECT_NEAR(r.max[0] - r.min[0], 2 * 0.6745 * kNoise, 0.03 * kNoise);
  image.CalcSky(all, r.max, r.min, r.mean, r.sd, r.median);
  EXPECT_NEAR(r.mean[0], kLevel - 0.7979 * kNoise, 0.02 * kNoise);
  EXPECT_NEAR(r.sd[0], 0.6028 * kNoise, 0.01 * kNoise);
  EXPECT_NEAR(r.median[0], kLevel - 0.6745 * kNoise, 0.02 * kNoise);
}

TEST(PixelInfo, WidthOfTheStarNearAPoint) {
  auto image = StarCells<CImgPixelInfo>(3.0, 2000.0, 500.0, 5.0, 4);
  PSF psf(&image);
  psf.Add(CPoint(kCell / 2, kCell / 2));
  double expected = 0.0, fwhm = -1.0;
  ASSERT_EQ(psf.GetMeanFWHM(&expected), 1);
  image.CalcFWHM(kCell / 2 + 7, kCell / 2 - 8, &fwhm);
  EXPECT_EQ(fwhm, expected);
  CImgPixelInfo flat = Shaped<CImgPixelInfo>(30, 30, 1), falling = Shaped<CImgPixelInfo>(30, 30, 1);
  Fill(falling, [](int, int x, int y) { return static_cast<float>(100 - x - y); });
  for (CImgPixelInfo* const none : {&flat, &falling}) {
    none->CalcFWHM(15, 15, &fwhm);
    EXPECT_EQ(fwhm, 0.0);
  }
}

// ---- CImgEvaluateFocus ----------------------------------------------------------------------------------------------

TEST(EvaluateFocus, MeanDifferenceOfTheEngines) {
  const Settings settings("[Eval]\nMin = 1\nMax = 3\n");
  auto image = Noise<CImgEvaluateFocus>(41, 30, 3, 2);
  CFilterMatrix narrow, wide;
  narrow.SetGaussianSigma(1.0);
  wide.SetGaussianSigma(3.0);
  const auto literal = [&](int left, int top, int right, int bottom) {
    const Threads one(1);
    CVynImage engines(image);
    double sum = 0.0, count = 0.0;
    for (int p = 0; p < 3; ++p) {
      engines.MakeFilterProcEx(0, &engines, &narrow, p, 1);
      engines.MakeFilterProcEx(1, &engines, &wide, p, 1);
      for (int y = top; y < bottom; ++y) {
        for (int x = left; x < right; ++x) {
          sum += std::fabs(engines.CalcFilterProcEx(0, x, y, p) - engines.CalcFilterProcEx(1, x, y, p));
          ++count;
        }
      }
    }
    return sum / count;
  };
  const double whole = image.Do(0);
  EXPECT_NEAR(whole, literal(3, 3, 38, 27), 1e-12 * whole);
  CRect inside(5, 6, 30, 25), beyond(-10, 2, 100, 100), empty(5, 5, 11, 20), reversed(20, 20, 5, 5);
  EXPECT_NEAR(image.Do(&inside, 0), literal(8, 9, 27, 22), 1e-12 * whole);
  EXPECT_NEAR(image.Do(&beyond, 0), literal(3, 5, 38, 27), 1e-12 * whole);
  EXPECT_EQ(image.Do(&empty, 0), 0.0);
  EXPECT_EQ(image.Do(&reversed, 0), 0.0);
  // Each call starts afresh; the engines stay.
  EXPECT_EQ(image.Do(0), whole);
  EXPECT_NE(image.CalcFilterProcEx(1, 20, 5, 2), 0.0f);
  EXPECT_TRUE(SameForAllThreads([&] {
    const double score = CImgEvaluateFocus(image).Do(0);
    return std::string(reinterpret_cast<const char*>(&score), sizeof score);
  }));

  // A unit a row of the area, out of all rows.
  const Threads one(1);
  RecordingWindow window;
  image.SetProgressHandle(&window);
  image.Do(1);
  ASSERT_FALSE(window.Percents().empty());
  EXPECT_EQ(window.Percents().back(), 80);
  EXPECT_EQ(window.events.back().code, kProgressEnd);
}

TEST(EvaluateFocus, TooSmallAnImageScoresNothing) {
  for (const auto& [width, height] : {std::pair{20, 40}, std::pair{1, 1}, std::pair{500, 20}}) {
    auto image = Noise<CImgEvaluateFocus>(width, height, 1, 1);
    EXPECT_EQ(image.Do(0), 0.0);
  }
  const Settings settings("[Eval]\nMax = 2000000000\n");
  auto image = Noise<CImgEvaluateFocus>(500, 400, 1, 1);
  EXPECT_EQ(image.Do(0), 0.0);
}

// The same stars, blurred more and more, under the same sky noise: of none, and of 0.5 % of the sharpest peak.
TEST(EvaluateFocus, FallsWithBlur) {
  for (const double noise : {0.0, 10.0}) {
    double before = std::numeric_limits<double>::infinity();
    for (const double fwhm : {1.5, 2.0, 3.0, 4.0, 6.0, 8.0, 12.0}) {
      // One light for all widths.
      const double share = std::erf(0.5 / (fwhm / 2.354820045 * std::sqrt(2.0)));
      auto image = StarCells<CImgEvaluateFocus>(fwhm, 20000.0 * share * share, 500.0, noise, 6);
      const double score = image.Do(0);
      EXPECT_LT(score, before * 0.999) << fwhm << " " << noise;
      before = score;
    }
  }
}

}  // namespace
}  // namespace qmr::test
