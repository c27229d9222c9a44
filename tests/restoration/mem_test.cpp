// Maximum entropy restoration: the blurring operator against its definition, what the solver makes of known skies, and
// how runs end.
#include "qmrimg/restoration/mem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/message_box.h"
#include "qmrimg/restoration/gauss_psf.h"
#include "qmrimg/restoration/kernels/entropy_rows.h"
#include "qmrimg/restoration/mem_blur.h"
#include "qmrimg/restoration/mem_restore.h"
#include "qmrimg/restoration/restoration_steps.h"
#include "tests/restoration/failing_memory.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;

using Floats = std::vector<float>;
using Grid = std::vector<double>;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

std::size_t Area(int w, int h) {
  return static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
}

int CallBlur(Floats& out, Floats& in, Floats& psf, int pw, int ph, Floats& work, int w, int h, int mode,
             CVynImage* progress = nullptr) {
  MemBlur(out.data(), in.data(), psf.data(), work.data(), w, h, pw, ph, &mode, progress, 10, 70);
  return mode;
}
void ResetBlur() {
  int mode = -5;
  MemBlur(nullptr, nullptr, nullptr, nullptr, 0, 0, 0, 0, &mode, nullptr, 0, 0);
  ASSERT_EQ(mode, 0);
}

Floats Uniform(std::size_t count, std::uint64_t seed) {
  Random random(seed);
  Floats values(count);
  for (float& v : values) v = static_cast<float>(random.Uniform());
  return values;
}

// The light of a sky, and what a telescope makes of it.
struct Sky {
  int w, h;
  Grid truth;
  Floats data;
  double variance;
};

// `light` blurred by a Gaussian, by definition. Cyclic when `wraps`, otherwise the border goes on outside.
Grid Blurred(const Grid& light, int w, int h, double sigma, bool wraps) {
  const int reach = static_cast<int>(6 * sigma) + 1;
  Grid kernel, row(light.size()), out(light.size());
  double sum = 0.0;
  for (int i = -reach; i <= reach; ++i) sum += kernel.emplace_back(std::exp(-i * i / (2.0 * sigma * sigma)));
  const auto index = [wraps](int i, int n) { return wraps ? ((i % n) + n) % n : std::clamp(i, 0, n - 1); };
  const auto pass = [&](const Grid& from, Grid& to, int dx, int dy) {
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        double v = 0.0;
        for (int i = -reach; i <= reach; ++i)
          v += kernel[i + reach] / sum * from[Area(w, index(y + i * dy, h)) + index(x + i * dx, w)];
        to[Area(w, y) + x] = v;
      }
    }
  };
  pass(light, row, 1, 0);
  pass(row, out, 0, 1);
  return out;
}

// Stars, Gaussians of `starSigma`, on a level.
Sky MakeSky(int w, int h, double level, int stars, double brightest, double starSigma, double sigma, double noise,
            bool wraps) {
  Random random(17);
  Sky sky{w, h, Grid(Area(w, h), level), Floats(Area(w, h)), noise * noise};
  for (int i = 0; i < stars; ++i) {
    const int x = random.Integer(4, w - 5), y = random.Integer(4, h - 5);
    sky.truth[Area(w, y) + x] += brightest * (0.02 + 0.98 * std::pow(random.Uniform(), 3));
  }
  if (starSigma > 0.0) sky.truth = Blurred(sky.truth, w, h, starSigma, wraps);
  const Grid blurred = Blurred(sky.truth, w, h, sigma, wraps);
  for (std::size_t i = 0; i < sky.data.size(); ++i)
    sky.data[i] = static_cast<float>(blurred[i] + noise * random.Normal());
  return sky;
}

double RmsError(const Sky& sky, const Floats& image) {
  double sum = 0.0;
  for (std::size_t i = 0; i < image.size(); ++i) sum += std::pow(image[i] - sky.truth[i], 2);
  return std::sqrt(sum / static_cast<double>(image.size()));
}
double Flux(const Floats& image) {
  double sum = 0.0;
  for (const float v : image) sum += v;
  return sum;
}
struct LastStep : RestorationSteps {
  LastStep() : watch(this) {}
  void Step(const RestorationStep& step) override { last = step; }
  RestorationStep last = {};
  WatchRestoration watch;
};

Floats Restored(Sky& sky, double sigma, int iterations, int* code = nullptr) {
  Floats psf = MakeGauss(sigma, 63, 63), out(sky.data.size(), -1.0f);
  const int result =
      MemRestore(sky.data.data(), out.data(), sky.w, sky.h, psf.data(), 63, 63, sky.variance, iterations, nullptr, 0);
  if (code)
    *code = result;
  else
    EXPECT_THAT(result, AnyOf(0, 5, 6, 56));
  return out;
}

// Two kernels with their centroid known: an asymmetric one of whole pixels, and the Gaussian half a pixel off.
TEST(MemBlur, ConvolvesAroundTheCentroidAndBack) {
  const double taps[] = {1.0 / 6, 0.0, 3.0 / 6, 2.0 / 6, 0.0};  // -2 + 2 = 0: the centroid is the middle
  Floats lopsided;
  for (const double a : taps) {
    for (const double b : taps) lopsided.push_back(static_cast<float>(a * b));
  }
  for (const auto& [w, h] : std::vector<std::pair<int, int>>{
           {64, 64}, {128, 32}, {16, 256}, {4, 2}, {2, 8}, {1, 64}, {64, 1}, {1, 1}, {2, 1}}) {
    SCOPED_TRACE(testing::Message() << w << " x " << h);
    const std::size_t n = Area(w, h);
    Floats in = Uniform(n, 1), other = Uniform(n, 2), out(n), back(n), work(MemBlurWorkFloats(w, h));
    ResetBlur();
    ASSERT_EQ(CallBlur(out, in, lopsided, 5, 5, work, w, h, 1), 0);
    ASSERT_EQ(CallBlur(back, other, lopsided, 5, 5, work, w, h, 2), 0);
    double forward = 0.0, adjoint = 0.0, worst = 0.0;
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        double sum = 0.0;
        for (int j = -2; j <= 2; ++j) {
          for (int i = -2; i <= 2; ++i) {
            const int from = (x - i + 4 * w) % w, row = (y - j + 4 * h) % h;
            sum += taps[i + 2] * taps[j + 2] * in[Area(w, row) + from];
          }
        }
        worst = std::max(worst, std::fabs(sum - out[Area(w, y) + x]));
      }
    }
    for (std::size_t i = 0; i < n; ++i) forward += out[i] * other[i], adjoint += in[i] * back[i];
    EXPECT_LT(worst, 1e-6);
    EXPECT_NEAR(forward, adjoint, 1e-6 * forward);

    ResetBlur();
    Floats gauss = MakeGauss(1.5, 63, 63);
    ASSERT_EQ(CallBlur(out, in, gauss, 63, 63, work, w, h, 3), 0);
    const Grid expected = Blurred(Grid(in.begin(), in.end()), w, h, 1.5, true);
    for (std::size_t i = 0; i < n; ++i) ASSERT_NEAR(out[i], expected[i], 1e-4) << i;
    ASSERT_EQ(CallBlur(in, in, gauss, 63, 63, work, w, h, 1), 0);
    EXPECT_EQ(in, out);  // in place as well
  }
  ResetBlur();
}

TEST(MemBlur, TellsByItsModeHowItWent) {
  Floats psf = MakeGauss(1.0, 63, 63), in(64), out(64), work(MemBlurWorkFloats(8, 8));
  for (const int mode : {0, 4, 99}) EXPECT_EQ(CallBlur(out, in, psf, 63, 63, work, 8, 8, mode), 1);
  for (const auto& [w, h] : std::vector<std::pair<int, int>>{{7, 8}, {8, 6}, {0, 8}, {8, -8}}) {
    ResetBlur();
    EXPECT_EQ(CallBlur(out, in, psf, 63, 63, work, w, h, 1), 1);
  }
  ResetBlur();
  CVynImage image;
  RecordingWindow window;
  image.SetProgressHandle(&window);
  image.ShowProgressInit(L"");
  EXPECT_EQ(CallBlur(out, in, psf, 63, 63, work, 8, 8, 1, &image), 0);
  EXPECT_THAT(window.Percents(), ElementsAre(20, 30, 40, 50, 60));
  EXPECT_EQ(CallBlur(out, in, psf, 63, 63, work, 4, 8, 1), 1) << "another size needs a reset";
  for (int look = 1; look <= 5; ++look) {
    window.looks = 0;
    window.escapeAtLook = look;
    EXPECT_EQ(CallBlur(out, in, psf, 63, 63, work, 8, 8, 2, &image), 8);
  }
  ResetBlur();
}

TEST(EntropyRows, LogarithmIsThatOfTheLibrary) {
  Floats x, log(4001);
  for (int i = -2000; i <= 2000; ++i) x.push_back(static_cast<float>(std::exp(i * 0.043) * (1.0 + i * 1e-6)));
  x[2000] = 1.0f;
  GradientRow(x.data(), Floats(4001).data(), 4001, 1.0f, 0.0f, log.data());
  EXPECT_EQ(log[2000], 0.0f);
  for (int i = 0; i < 4001; ++i) {
    const double expected = std::log(static_cast<double>(x[i]));
    ASSERT_NEAR(log[i], expected, 2.5e-7 * std::fabs(expected) + 1e-9) << x[i];
  }
}

// Fields in the units of 8, 12 and 16 bits and about a sky of zero, on whole grids and on padded ones, whose padding
// counts for nothing.
TEST(MemRestore, RestoresAFieldToItsNoise) {
  struct Field {
    int w, h;
    double level, brightest, starSigma, noise, left;  // part of the error that is left
  };
  for (const Field& f : {Field{64, 64, 100.0, 70000.0, 0.8, 10.0, 0.2},
                         {64, 64, 20.0, 2500.0, 0.7, 1.0, 0.45},
                         {100, 75, 150.0, 40000.0, 0.7, 6.0, 0.25},
                         {33, 200, 1000.0, 600000.0, 1.2, 40.0, 0.2},
                         {100, 75, 0.0, 600000.0, 1.2, 40.0, 0.2}}) {
    SCOPED_TRACE(testing::Message() << f.w << " x " << f.h << ", level " << f.level);
    Sky sky = MakeSky(f.w, f.h, f.level, f.w * f.h / 160, f.brightest, f.starSigma, 1.2, f.noise, false);
    LastStep watch;
    const Floats out = Restored(sky, 1.2, 40);
    EXPECT_LT(RmsError(sky, out) / RmsError(sky, sky.data), f.left);
    EXPECT_NEAR(watch.last.chiSquare, 1.0, 0.3);
    EXPECT_NEAR(Flux(out) / Flux(sky.data), 1.0, 0.005);
    EXPECT_GT(*std::min_element(out.begin(), out.end()), 0.0f);
  }
}

// Far too many stars for a few pixels: steps that dark values turn aside don't lead away from the data.
TEST(MemRestore, NeverLeapsAwayFromTheData) {
  struct Steps : RestorationSteps {
    void Step(const RestorationStep& step) override {
      if (step.iteration > 0) {
        EXPECT_LT(step.chiSquare, 3.0 * std::max(last, 1.0)) << step.iteration;
      }
      last = step.chiSquare;
    }
    double last = 0.0;
  };
  for (int seed = 0; seed < 20; ++seed) {
    Sky sky{6, 7, {}, Uniform(42, static_cast<std::uint64_t>(seed)), 100.0};
    for (float& v : sky.data) v = 5000.0f * v * v * v * v;
    Steps steps;
    const WatchRestoration watch(&steps);
    Restored(sky, 2.7, 40);
  }
}

// 100 x 75 in a grid of 128 x 128, values as of eight bits: the half pixel of the PSF moves no star, and the run is not
// over before it has restored.
TEST(MemRestore, LeavesStarsInTheirPlaces) {
  Sky sky = MakeSky(100, 75, 20.0, 0, 0.0, 0.0, 1.5, 1.0, false);
  const int places[][2] = {{20, 20}, {50, 37}, {80, 15}, {25, 60}, {75, 62}};
  Grid stars(sky.truth.size());
  for (const auto& at : places) stars[Area(100, at[1]) + at[0]] = 3000.0;
  const Grid blurred = Blurred(stars, 100, 75, 1.5, false);
  for (std::size_t i = 0; i < stars.size(); ++i)
    sky.truth[i] += stars[i], sky.data[i] += static_cast<float>(blurred[i]);
  const Floats out = Restored(sky, 1.5, 40);
  EXPECT_LT(RmsError(sky, out), 0.8 * RmsError(sky, sky.data));
  for (const auto& at : places) {
    double sum = 0.0, dx = 0.0, dy = 0.0;
    for (int j = -5; j <= 5; ++j) {
      for (int i = -5; i <= 5; ++i) {
        const double v = out[Area(100, at[1] + j) + at[0] + i] - 20.0;
        sum += v, dx += v * i, dy += v * j;
      }
    }
    EXPECT_NEAR(dx / sum, 0.0, 0.05);
    EXPECT_NEAR(dy / sum, 0.0, 0.05);
    EXPECT_NEAR(sum, 3000.0, 250.0);
  }
}

TEST(MemRestore, SurvivesValuesWithoutSense) {
  Floats psf = MakeGauss(1.2, 63, 63);
  for (const auto& [w, h] : std::vector<std::pair<int, int>>{{1, 1}, {1, 40}, {40, 1}, {5, 3}, {33, 17}}) {
    for (const double variance : {100.0, 0.0, -1.0, 1e300, std::nan("")}) {
      for (const int kind : {0, 1, 2, 3, 4}) {
        SCOPED_TRACE(testing::Message() << w << " x " << h << ", " << variance << ", " << kind);
        Floats in = Uniform(Area(w, h), 3);
        for (float& v : in)
          v = kind == 0 ? 0.0f : kind == 1 ? (v - 0.6f) * 1000.0f : kind == 2 ? 1e30f * v : 100.0f * v;
        if (kind == 3) in[0] = kNan, in.back() = std::numeric_limits<float>::infinity();
        if (kind == 4) in.assign(in.size(), kNan);
        Floats out(in.size(), -1.0f);
        EXPECT_THAT(MemRestore(in.data(), out.data(), w, h, psf.data(), 63, 63, variance, 30, nullptr, 0),
                    AnyOf(0, 5, 6, 56));
        for (const float v : out) ASSERT_TRUE(v >= 0.0f && std::isfinite(v)) << v;
      }
    }
  }
  Floats in = Uniform(64, 4), out(64, -1.0f), none = MakeGauss(0.0, 63, 63), dark(9);
  EXPECT_EQ(MemRestore(in.data(), out.data(), 8, 8, none.data(), 63, 63, 1.0, 5, nullptr, 0), 4);
  EXPECT_EQ(MemRestore(in.data(), out.data(), 8, 8, dark.data(), 3, 3, 1.0, 5, nullptr, 0), 4);
  EXPECT_EQ(MemRestore(in.data(), out.data(), 0, 8, psf.data(), 63, 63, 1.0, 5, nullptr, 0), 4);
  EXPECT_EQ(MemRestore(nullptr, out.data(), 8, 8, psf.data(), 63, 63, 1.0, 5, nullptr, 0), 4);
  EXPECT_EQ(out, Floats(64, -1.0f));
  // Without a number of iterations the steps end the run.
  for (float& v : in) v *= 1000.0f;
  LastStep watch;
  EXPECT_THAT(MemRestore(in.data(), out.data(), 8, 8, psf.data(), 63, 63, 2500.0, 0, nullptr, 0), AnyOf(0, 5, 6, 56));
  EXPECT_LT(watch.last.iteration, 500);
}

// The limits are in units of the data, on purpose: a picture in 0 .. 1 ends after one iteration.
TEST(MemRestore, EndsWhenStepsAreSmallInUnitsOfTheData) {
  Sky sky = MakeSky(64, 64, 100.0, 25, 9000.0, 0.8, 1.2, 5.0, true);
  LastStep watch;
  Restored(sky, 1.2, 7);
  EXPECT_EQ(watch.last.iteration, 7);
  for (float& v : sky.data) v /= 1000.0f;
  sky.variance /= 1e6;
  Restored(sky, 1.2, 40);
  EXPECT_EQ(watch.last.iteration, 1);
}

TEST(MemRestore, ReportsWhenAsked) {
  Sky sky = MakeSky(20, 12, 100.0, 3, 5000.0, 0.0, 1.2, 5.0, true);
  testing::internal::CaptureStdout();
  SetMemVerbose(true);
  Restored(sky, 1.2, 2);
  SetMemVerbose(false);
  Restored(sky, 1.2, 2);
  const std::string text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(text.find("maximum entropy restoration\n"
                      "array dimension                  512\n"
                      "number of data                   240\n"
                      "number of unknowns               512\n"
                      "number of work-arrays              8\n"
                      "factor to o(1)-scale "),
            0u);
  EXPECT_THAT(text, HasSubstr("\n\nmain iter                    2     g function "));
  EXPECT_THAT(text, HasSubstr("\nsub  iter                  2.0     a value    "));
  EXPECT_EQ(text.find("maximum entropy", 1), std::string::npos);
}

TEST(MemRestore, RunsSideBySide) {
  Sky sky = MakeSky(40, 40, 100.0, 9, 5000.0, 0.0, 1.2, 5.0, true);
  Sky other = MakeSky(70, 20, 100.0, 9, 5000.0, 0.0, 2.0, 5.0, true);
  const Floats alone = Restored(sky, 1.2, 12), otherAlone = Restored(other, 2.0, 12);
  Floats out, otherOut;
  std::thread thread([&] { otherOut = Restored(other, 2.0, 12); });
  out = Restored(sky, 1.2, 12);
  thread.join();
  EXPECT_EQ(out, alone);
  EXPECT_EQ(otherOut, otherAlone);
}

CImgMem Picture(int planes) {
  CImgMem image = Shaped<CImgMem>(23, 19, planes);
  Random random(5);
  Fill(image, [&](int, int x, int y) {
    return static_cast<float>(x == 11 && y == 9 ? 5000.0 : random.Uniform(900.0, 1100.0));
  });
  return image;
}

TEST(CImgMem, RestoresEveryPlaneWithinTheRectangle) {
  CImgMem whole = Picture(3), part = Picture(3);
  const CImgMem before = Picture(3);
  CRect all(0, 0, 23, 19), rect(3, 2, 20, 18), outside(3, 2, 24, 18), empty(5, 5, 5, 9);
  EXPECT_EQ(whole.Do(1.2, 60.0, 8, &all, 0), 1);
  EXPECT_EQ(part.Do(1.2, 60.0, 8, &rect, 0), 1);
  for (int p = 0; p < 3; ++p) {
    Floats data = Pixels(before, p), out(data.size()), psf = MakeGauss(1.2, 63, 63);
    MemRestore(data.data(), out.data(), 23, 19, psf.data(), 63, 63, 3600.0, 8, nullptr, 0);
    EXPECT_EQ(Pixels(whole, p), out);
  }
  EXPECT_TRUE(
      PixelsAre([&](int p, int x,
                    int y) { return x >= 3 && x < 20 && y >= 2 && y < 18 ? At(part, p, x, y) : At(before, p, x, y); },
                part));
  EXPECT_NE(At(part, 2, 11, 9), At(before, 2, 11, 9));
  const std::string bytes = Bytes(part);
  EXPECT_EQ(part.Do(1.2, 60.0, 8, &outside, 0), 0);
  EXPECT_EQ(part.Do(1.2, 60.0, 8, &empty, 0), 1);
  EXPECT_EQ(Bytes(part), bytes);
}

TEST(CImgMem, IsTheSameForAllThreads) {
  EXPECT_TRUE(SameForAllThreads([] {
    CImgMem image = Noise<CImgMem>(101, 75, 2, 6, 900.0, 1100.0);
    image.Do(1.4, 60.0, 6, nullptr, 0);
    return Bytes(image);
  }));
}

TEST(CImgMem, ReportsItsWayAndHeedsEscAtEveryStep) {
  const Threads one(1);
  RecordingWindow window;
  CImgMem image = Picture(3);
  const std::string before = Bytes(image);
  image.SetProgressHandle(&window);
  ASSERT_EQ(image.Do(1.2, 60.0, 2, nullptr, 1), 1);
  std::vector<std::wstring> titles;
  for (const RecordingWindow::Event& event : window.events) {
    if (event.code == kProgressTitle) titles.push_back(event.text);
  }
  ASSERT_EQ(titles.size(), 12u);
  EXPECT_EQ(titles[4], L"最大エントロピー法 - 準備中 プレーン 2");
  EXPECT_EQ(titles[5], L"最大エントロピー法(ESC：キャンセル) - 前処理中 プレーン 2");
  EXPECT_EQ(titles[7], L"最大エントロピー法(ESC：キャンセル) - 処理中 プレーン 2 (2回目)");
  const int looks = window.looks;
  for (int look = 1; look <= looks; ++look) {
    RecordingWindow esc;
    esc.escapeAtLook = look;
    CImgMem cancelled = Picture(3);
    cancelled.SetProgressHandle(&esc);
    const ShownMessages shown;
    EXPECT_EQ(cancelled.Do(1.2, 60.0, 2, nullptr, 1), 0) << look;
    EXPECT_THAT(shown.texts, ElementsAre(L"処理がキャンセルされました。"));
    EXPECT_EQ(Bytes(cancelled), before) << look;
    EXPECT_EQ(esc.looks, look);
    EXPECT_EQ(esc.events.back().code, kProgressEnd);
  }
  RecordingWindow plain;
  CImgMem single = Picture(1);
  single.SetProgressHandle(&plain);
  plain.escapeAtLook = 1;
  EXPECT_EQ(single.Do(1.2, 60.0, 1, nullptr, 0), 1);
  EXPECT_TRUE(plain.events.empty());
  plain.escapeAtLook = 0;
  EXPECT_EQ(single.Do(1.2, 60.0, 1, nullptr, 1), 1);
  EXPECT_EQ(plain.events.front().text, L"最大エントロピー法 - 準備中");
}

// What a spike leaves of a dark surrounding falls to nothing, which the code tells and Do takes for a success.
TEST(MemRestore, TellsOfResultsNearZero) {
  constexpr int kSide = 24;
  std::vector<float> in(kSide * kSide), out(in.size());
  for (std::size_t i = 0; i < in.size(); ++i) in[i] = i % 3 ? -40.0f : 5.0f;
  in[10 * kSide + 11] = in[15 * kSide + 4] = 50000.0f;
  float psf[9] = {0.0f, 0.1f, 0.0f, 0.1f, 0.6f, 0.1f, 0.0f, 0.1f, 0.0f};
  EXPECT_THAT(MemRestore(in.data(), out.data(), kSide, kSide, psf, 3, 3, 4.0, 1, nullptr, 0), AnyOf(0, 5));
  EXPECT_THAT(MemRestore(in.data(), out.data(), kSide, kSide, psf, 3, 3, 4.0, 60, nullptr, 0), AnyOf(6, 56));
  CImgMem image = Shaped<CImgMem>(kSide, kSide, 1);
  Fill(image, [&](int, int x, int y) { return in[static_cast<std::size_t>(y * kSide + x)]; });
  const ShownMessages shown;
  EXPECT_EQ(image.Do(1.2, 2.0, 60, nullptr, 0), 1);
  EXPECT_TRUE(shown.texts.empty());
}

TEST(CImgMem, LeavesNothingBehindWhenMemoryFails) {
  const Threads one(1);
  static int boxes;
  SetMessageBoxHook(
      [](const wchar_t* text, unsigned flags, void*) {
        boxes += flags == MB_OK && std::wstring_view(text).starts_with(L"メモリが不足しています。");
        return 1;
      },
      nullptr);
  const std::string before = Bytes(Picture(2));
  int raisedOnes = 0, coded = 0;
  for (long n = 1; n < 1000; ++n) {
    CImgMem image = Picture(2);
    int result = 0;
    bool raised, failed;
    long live;
    boxes = 0;
    {
      const FailingMemory memory(n);
      raised = Raises<CMemoryException>([&] { result = image.Do(1.2, 60.0, 2, nullptr, 0); });
      failed = memory.Failed();
      live = memory.Live();
    }
    EXPECT_EQ(live, 0) << n;
    if (!failed) {
      EXPECT_EQ(result, 1);
      break;
    }
    EXPECT_EQ(result, 0) << n;
    EXPECT_EQ(Bytes(image), before) << n;
    EXPECT_EQ(boxes, raised ? 0 : 1) << n;
    (raised ? raisedOnes : coded) += 1;
  }
  SetMessageBoxHook(nullptr, nullptr);
  EXPECT_GE(raisedOnes, 3);  // the two buffers and the point-spread function
  EXPECT_GE(coded, 6);       // the solver's arrays and the transform's tables, for each of two planes
}

}  // namespace
}  // namespace qmr::test
