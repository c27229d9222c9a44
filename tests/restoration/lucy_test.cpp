// Richardson-Lucy restoration: the iteration against its definition, what it makes of a blurred sky, and how it ends
// when memory or patience do.
#include "qmrimg/restoration/lucy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <valarray>
#include <vector>

#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/message_box.h"
#include "qmrimg/restoration/gauss_psf.h"
#include "qmrimg/restoration/lucy_restore.h"
#include "qmrimg/restoration/restoration_steps.h"
#include "tests/restoration/failing_memory.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::FloatEq;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

using Floats = std::vector<float>;
using Grid = std::valarray<double>;

constexpr LucyMode kModes[] = {LucyMode::kPlain, LucyMode::kAccelerated, LucyMode::kTurbo};
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

LucyRun RunOf(Floats& data, int width, int height, const Floats& psf, int psfWidth, int psfHeight, int iterations) {
  LucyRun run;
  run.data = data.data();
  run.width = width;
  run.height = height;
  run.psf = psf.data();
  run.psfWidth = psfWidth;
  run.psfHeight = psfHeight;
  run.iterations = iterations;
  run.chiLimit = -1e9;
  return run;
}

// Chi-square of each iteration, the first estimate's in front.
struct ChiSquares : RestorationSteps {
  ChiSquares() : watch(this) {}
  void Step(const RestorationStep& step) override { values.push_back(step.chiSquare); }
  std::vector<double> values;
  WatchRestoration watch;
};

// The iteration in double, step by step, with convolutions by definition.
struct Literal {
  explicit Literal(const LucyRun& r)
      : run(r),
        W(std::max(r.width, r.psfWidth)),
        H(std::max(r.height, r.psfHeight)),
        c(r.readNoise * r.readNoise / r.gain) {
    for (Grid* const grid : {&mask, &data, &psf, &estimate}) grid->resize(static_cast<std::size_t>(W * H));
    for (int i = 0; i < r.width * r.height; ++i) {
      const std::size_t at = Place(i % r.width, i / r.width);
      mask[at] = r.data[i] < -std::sqrt(c / r.gain) * r.rejectSigma ? 0.0 : 1.0;
      data[at] = mask[at] > 0.0 ? r.data[i] : -60.0;
    }
    const int peak = static_cast<int>(std::max_element(r.psf, r.psf + r.psfWidth * r.psfHeight) - r.psf);
    for (int i = 0; i < r.psfWidth * r.psfHeight; ++i)
      psf[At(i % r.psfWidth - peak % r.psfWidth, i / r.psfWidth - peak / r.psfWidth)] = std::max(r.psf[i], 0.0f);
    psf /= Grid(psf).sum();
    for (int i = 0; i < r.width * r.height; ++i) {
      const int x = i % r.width, y = i / r.width;
      if (r.firstGuess)
        estimate[Place(x, y)] = r.firstGuess[i];
      else
        estimate[At(x, (H - r.height) / 2 + y)] = Grid(mask * data).sum() / mask.sum();
    }
    norm = Convolved(mask, 1);
    const std::valarray<bool> low = norm < 0.001 * norm.max();
    norm[low] = 1.0;
    estimate[low] = 0.0;
    blurred = Convolved(estimate, -1);
  }

  void Iterate(int k) {
    Grid s = estimate * Convolved((data + c) / (blurred + c) * mask, 1) / norm - estimate, u = Convolved(s, -1);
    if (run.mode == LucyMode::kPlain) return Advance(s, u);
    const Grid bareS = s, bareU = u;
    bool turbo = run.mode == LucyMode::kTurbo && k >= 2;
    if (turbo) {
      const Grid f = lastU * mask * run.gain * (data + c) / ((estimate + c) * (estimate + c));
      const double beta = -Grid(u * f).sum() / Grid(lastU * f).sum();
      s += beta * lastS;
      u += beta * lastU;
    }
    const std::valarray<bool> dark = estimate < 0.0;
    estimate[dark] = 0.0;
    s[dark] = 0.0;
    double most = Extreme(s, -1.0, 100.0);
    if (turbo && most < 1.0) {
      s = bareS, u = bareU, turbo = false;
      most = Extreme(s, -1.0, 100.0);
    }
    const double least = turbo ? Extreme(s, 1.0, -100.0) : 1.0;
    double factor = 1.0, change = 1.0;
    for (int round = 0; round < 20 && std::fabs(change) > 0.01; ++round) {
      const Grid signal = data + c, model = blurred + u * factor + c;
      change = Grid((signal / model - 1.0) * u * mask).sum() / Grid(u / model * u / model * signal * mask).sum();
      if (factor + change >= most)
        change = (most - factor) * 0.5;
      else if (factor + change <= least)
        change = (least - factor) * 0.5;
      factor += change;
    }
    Advance(s * factor, u * factor);
  }

  double ChiSquare() const {
    const Grid error = (blurred - data) * run.gain, variance = blurred * run.gain + run.readNoise * run.readNoise;
    return Grid(mask * error * error / variance).sum() / (mask.sum() - 1.0);
  }

  std::size_t At(int x, int y) const { return static_cast<std::size_t>((y + 2 * H) % H * W + (x + 2 * W) % W); }
  std::size_t Place(int x, int y) const { return At((W - run.width) / 2 + x, (H - run.height) / 2 + y); }
  // The convolution for the sign -1, the correlation for +1.
  Grid Convolved(const Grid& image, int sign) const {
    Grid sum(image.size());
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x)
        for (int i = 0; i < W * H; ++i) sum[At(x, y)] += psf[i] * image[At(x + sign * (i % W), y + sign * (i / W))];
    return sum;
  }
  // Of -estimate / step where the step has this sign, the value nearest 0.
  double Extreme(const Grid& s, double sign, double none) const {
    double best = sign * -std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < s.size(); ++i)
      if (s[i] * sign > 0.0)
        best = sign < 0.0 ? std::min(best, -estimate[i] / s[i]) : std::max(best, -estimate[i] / s[i]);
    return std::isinf(best) ? none : best;
  }
  void Advance(const Grid& s, const Grid& u) {
    estimate += lastS = s;
    blurred += lastU = u;
  }

  const LucyRun run;
  const int W, H;
  const double c;
  Grid mask, data, psf, norm, estimate, blurred, lastS, lastU;
};

TEST(LucyRestore, FollowsItsDefinition) {
  // Uneven, off its middle, with two largest elements and one that doesn't count; as 8 x 2 the second doesn't reach
  // from the middle of the narrow image to the column where the first estimate begins.
  const Floats wide = {0.1f, 0.2f, 0.1f, 0.05f, 0.3f, 2.0f, 0.6f, -0.4f,
                       0.1f, 2.0f, 0.5f, 0.1f,  0.0f, 0.2f, 0.1f, 0.05f};
  const Floats slim = {0.0f, 0.0f, 0.0f, 0.05f, 0.3f, 2.0f, 0.6f, -0.4f,
                       0.0f, 0.0f, 0.0f, 0.1f,  2.0f, 0.2f, 0.1f, 0.0f};
  const struct {
    int width, height, psfWidth, psfHeight;
    const Floats& psf;
    bool guess;
  } cases[] = {{9, 7, 4, 4, wide, false},
               {3, 8, 8, 2, slim, false},
               {11, 3, 2, 8, wide, true},
               {3, 2, 4, 4, wide, false},
               {9, 7, 4, 4, wide, true}};
  for (const auto& size : cases) {
    for (const LucyMode mode : kModes) {
      SCOPED_TRACE(testing::Message() << size.width << " x " << size.height << ", mode " << static_cast<int>(mode));
      Random random(5);
      Floats data(static_cast<std::size_t>(size.width * size.height));
      for (float& v : data) v = static_cast<float>(40.0 + 600.0 * std::pow(random.Uniform(), 6));
      Floats guess = data;
      guess[4] = -5.0f;
      data[data.size() / 2] = -std::numeric_limits<float>::infinity();  // rejected
      LucyRun run = RunOf(data, size.width, size.height, size.psf, size.psfWidth, size.psfHeight, 6);
      run.firstGuess = size.guess ? guess.data() : nullptr;
      run.mode = mode;
      run.gain = 1.7;
      run.readNoise = 9.0;
      Literal literal(run);
      std::vector<double> expected = {literal.ChiSquare()};
      for (int k = 1; k <= run.iterations; ++k) {
        literal.Iterate(k);
        expected.push_back(literal.ChiSquare());
      }
      ChiSquares chi;
      ASSERT_EQ(RunLucy(run).code, 0);
      for (std::size_t k = 0; k < expected.size(); ++k)
        EXPECT_NEAR(chi.values.at(k), expected[k], 2e-4 * std::fabs(expected[k]));
      for (int i = 0; i < size.width * size.height; ++i) {
        const double v = literal.estimate[literal.Place(i % size.width, i / size.width)];
        EXPECT_NEAR(data[static_cast<std::size_t>(i)], v, 1e-3 * std::fabs(v) + 0.01) << i;
      }
    }
  }
}

TEST(LucyRestore, SharpensABlurredSkyAndKeepsItsLight) {
  // Point stars on a level of 100 units (200 electrons), and what a blurred and noisy frame shows of them.
  constexpr int kWidth = 256, kHeight = 192;
  constexpr double kGain = 2.0, kReadNoise = 5.0;
  const Floats psf = MakeGauss(2.0, 64, 64);
  Grid truth(100.0, kWidth * kHeight), light = truth;
  Random random(11);
  for (int y = 16; y < kHeight - 16; y += 20) {
    for (int x = 16; x < kWidth - 16; x += 20) {
      const int at = (y + random.Integer(-3, 3)) * kWidth + x + random.Integer(-3, 3);
      const double star = 1000.0 * std::pow(30.0, random.Uniform());
      truth[at] += star;
      for (int v = -12; v <= 12; ++v)
        for (int t = -12; t <= 12; ++t) light[at + v * kWidth + t] += star * psf[(32 + v) * 64 + 32 + t];
    }
  }
  Floats data;
  for (const double v : light)
    data.push_back(static_cast<float>(v + std::sqrt(v * kGain + kReadNoise * kReadNoise) * random.Normal() / kGain));
  const auto grid = [](const Floats& image) {
    Grid values(image.size());
    std::copy(image.begin(), image.end(), std::begin(values));
    return values;
  };
  const auto rms = [&](const Floats& image) {
    const Grid error = grid(image) - truth;
    return std::sqrt(Grid(error * error).sum() / static_cast<double>(error.size()));
  };

  double errors[3][2], chis[3][2];
  for (const LucyMode mode : kModes) {
    for (const int round : {0, 1}) {
      Floats image = data;
      LucyRun run = RunOf(image, kWidth, kHeight, psf, 64, 64, round == 0 ? 10 : 30);
      run.mode = mode;
      run.gain = kGain;
      run.readNoise = kReadNoise;
      const LucyOutcome outcome = RunLucy(run);
      EXPECT_EQ(outcome.iterations, run.iterations);
      EXPECT_NEAR(grid(image).sum() / grid(data).sum(), 1.0, 0.005);
      errors[static_cast<int>(mode)][round] = rms(image);
      chis[static_cast<int>(mode)][round] = outcome.chiSquare;
    }
  }
  for (const int mode : {0, 1, 2}) {
    EXPECT_LT(errors[mode][0], rms(data) * 0.97);
    EXPECT_LT(errors[mode][1], errors[mode][0] * 0.96);
  }
  // Each kind of step gains on the one before: turbo is as far after 10 as plain steps after 30.
  for (const int mode : {1, 2}) EXPECT_LT(errors[mode][0], errors[mode - 1][0] * 0.99);
  EXPECT_LT(errors[2][0], errors[0][1] * 1.01);
  EXPECT_LT(chis[2][0], chis[0][1]);
  EXPECT_LT(chis[2][1], 0.95);
}

TEST(LucyRestore, StartsFromTheMeanAndStopsAtTheLimit) {
  const Floats psf = MakeGauss(1.5, 64, 64);
  const auto restored = [&](int width, Floats data, int iterations = 0) {
    LucyRun run = RunOf(data, width, 66, psf, 64, 64, iterations);
    run.readNoise = 4.0;
    EXPECT_EQ(RunLucy(run).code, 0);
    return data;
  };
  Floats data(70 * 66, 50.0f);
  data[0] = -1000.0f;  // far below the read noise: not in the mean
  data[1] = 20.0f;
  const float mean = static_cast<float>(50.0 - 30.0 / (70 * 66 - 1));
  EXPECT_THAT(restored(70, data), Each(FloatEq(mean)));
  EXPECT_EQ(restored(70, data, -1), restored(70, data));
  EXPECT_THAT(restored(70, Floats(70 * 66, 0.0f)), Each(0.0f));
  for (const float dark : {-2.0f, -200.0f}) EXPECT_THAT(restored(70, Floats(70 * 66, dark)), Each(1.0f));
  // An image narrower than the point-spread function begins at column 0 of the grid: 10 of its 44 columns are lit.
  const Floats narrow = restored(44, Floats(44 * 66, 7.0f));
  for (std::size_t i = 0; i < narrow.size(); ++i) ASSERT_EQ(narrow[i], i % 44 < 34 ? 7.0f : 0.0f) << i;

  // The limit is looked at after an iteration, not before the first.
  LucyRun run = RunOf(data, 70, 66, psf, 64, 64, 50);
  run.chiLimit = 1e9;
  EXPECT_EQ(RunLucy(run).iterations, 1);
}

TEST(LucyRestore, SurvivesValuesWithoutSense) {
  const Floats gauss = MakeGauss(2.0, 8, 8), nan = MakeGauss(0.0, 8, 8), flat(64, 0.0f);
  EXPECT_THAT(nan, Each(testing::IsNan()));
  for (const LucyMode mode : kModes) {
    for (const double gain : {0.0, -1.0, 1.0, static_cast<double>(kNan)}) {
      for (const float value : {kNan, std::numeric_limits<float>::infinity(), 3e38f, -1.0f, 0.0f}) {
        for (const Floats* const psf : {&gauss, &nan, &flat}) {
          Floats data(7 * 5, 10.0f);
          data[3] = value;
          LucyRun run = RunOf(data, 7, 5, *psf, 8, 8, 3);
          run.mode = mode;
          run.gain = gain;
          EXPECT_EQ(RunLucy(run).code, 0);
        }
      }
    }
  }
  // A dark sky without read noise: nothing to divide by anywhere, and no reason for anything but numbers.
  for (const LucyMode mode : kModes) {
    Floats data(16 * 12);
    data[90] = 500.0f;
    LucyRun run = RunOf(data, 16, 12, gauss, 8, 8, 12);
    run.mode = mode;
    EXPECT_TRUE(std::isfinite(RunLucy(run).chiSquare));
    EXPECT_THAT(data, Not(testing::Contains(testing::IsNan())));
    EXPECT_GT(data[90], 200.0f);
  }
  Floats data(4, 1.0f), psf(1, 1.0f);
  EXPECT_EQ(LucyRestore(nullptr, 2, 2, psf.data(), 1, 1, nullptr, 1, 1.0, 0.0, 1.0, 5.0, nullptr, 0), 0);
  EXPECT_EQ(LucyRestore(data.data(), 2, 2, nullptr, 1, 1, nullptr, 1, 1.0, 0.0, 1.0, 5.0, nullptr, 0), 0);
  EXPECT_EQ(LucyRestore(data.data(), -2, 2, psf.data(), 1, 1, nullptr, 1, 1.0, 0.0, 1.0, 5.0, nullptr, 0), 0);
  EXPECT_THAT(data, Each(1.0f));
}

TEST(LucyRestore, ReportsWhenAsked) {
  const Floats psf = MakeGauss(1.0, 16, 16);
  Floats data(12 * 10, 100.0f);
  for (std::size_t i = 0; i < data.size(); i += 7) data[i] = 300.0f;
  data[12 * 2 + 5] = -80.0f;
  const Floats guess(data.size(), 1.0f);
  const auto run = [&](bool verbose, double limit) {
    Floats copy = data;
    LucyRun arguments = RunOf(copy, 12, 10, psf, 16, 16, 2);
    arguments.firstGuess = guess.data();
    arguments.earlierIterations = 5;
    arguments.readNoise = 16.0;
    arguments.gain = 2.0;
    arguments.chiLimit = limit;
    testing::internal::CaptureStdout();
    SetLucyVerbose(verbose);
    RunLucy(arguments);
    SetLucyVerbose(false);
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
  };
  EXPECT_EQ(run(false, 1e9), "");
  EXPECT_THAT(
      run(true, 1e9),
      testing::MatchesRegex("List of pixels below threshold -40 \\(-5 sigma\\)\n"
                            "pixel \\(8,6\\)  \\[6,3\\]; value -80\nInitial chi-sq = [0-9.]+\n"
                            "Accelerated iteration  CMIN = 1, CMAX = 100, C = [0-9.]+\n"
                            "Total Iterations 6  Iteration 1 : chi-sq = [0-9.]+\nchi-sq <= 1e\\+09,  converged\n"));
  EXPECT_THAT(run(true, 0.0), HasSubstr("Turbo iteration        CMIN = -"));
}

// As wide as only a convolution can transform.
CImgLucy Picture(int planes) {
  CImgLucy image = Noise<CImgLucy>(131, 17, planes, 4, 105.0, 115.0);
  for (int p = 0; p < planes; ++p) {
    image.SetPixelGrayRaw(9, 8 + p, 250.0f, p);
    image.SetPixelGrayRaw(5, 6, -6.0f, p);  // within five sigma of a read noise of 3 electrons
  }
  return image;
}

TEST(CImgLucy, RestoresEveryPlaneWithinTheRectangle) {
  CImgLucy image = Picture(3);
  CRect rect(3, 2, 69, 15), beyond(-1, 0, 18, 15), empty(4, 4, 4, 9), reversed(9, 9, 3, 3), all(-5, -5, 199, 99);
  ASSERT_EQ(image.Do(1.4, 2.0, 3.0, 30, &rect, 0), 1);
  const CImgLucy before = Picture(3);
  Floats psf = MakeGauss(1.4, 64, 64), parts[3];
  for (int p = 0; p < 3; ++p) {
    for (int i = 0; i < 66 * 13; ++i) parts[p].push_back(At(before, p, 3 + i % 66, 2 + i / 66));
    EXPECT_EQ(LucyRestore(parts[p].data(), 66, 13, psf.data(), 64, 64, nullptr, 30, 2.0, 3.0, 1.0, 5.0, nullptr, 0), 0);
    EXPECT_GT(parts[p][static_cast<std::size_t>((6 + p) * 66 + 6)], 200.0f);
  }
  EXPECT_TRUE(PixelsAre(
      [&](int p, int x, int y) {
        const bool inside = x >= 3 && x < 69 && y >= 2 && y < 15;
        return inside ? parts[p][static_cast<std::size_t>((y - 2) * 66 + x - 3)] : At(before, p, x, y);
      },
      image));
  const std::string bytes = Bytes(image);
  EXPECT_EQ(image.Do(1.4, 2.0, 5.0, 3, &beyond, 0), 0);
  EXPECT_EQ(image.Do(1.4, 2.0, 5.0, 3, &empty, 0), 1);
  EXPECT_EQ(image.Do(1.4, 2.0, 5.0, 3, &reversed, 0), 1);
  EXPECT_EQ(Bytes(image), bytes);
  CImgLucy whole = Picture(1), covered = Picture(1);
  EXPECT_EQ(whole.Do(1.4, 2.0, 5.0, 3, nullptr, 0), 1);
  EXPECT_EQ(covered.Do(1.4, 2.0, 5.0, 3, &all, 0), 1);
  EXPECT_EQ(Bytes(whole), Bytes(covered));
}

TEST(CImgLucy, IsTheSameForAllThreads) {
  EXPECT_TRUE(SameForAllThreads([] {
    CImgLucy image = Noise<CImgLucy>(150, 67, 1, 8, 50.0, 900.0);
    image.Do(1.2, 1.5, 6.0, 4, nullptr, 0);
    return Bytes(image);
  }));
}

TEST(CImgLucy, ReportsItsWayAndHeedsEscAtEveryStep) {
  const Threads one(1);
  RecordingWindow window;
  CImgLucy image = Picture(3);
  image.SetProgressHandle(&window);
  ASSERT_EQ(image.Do(1.4, 2.0, 5.0, 2, nullptr, 1), 1);
  std::vector<std::wstring> titles;
  for (const RecordingWindow::Event& e : window.events)
    if (e.code == kProgressTitle) titles.push_back(e.text);
  ASSERT_THAT(titles, SizeIs(9));
  EXPECT_EQ(titles[3], L"ルーシー＆リチャードソン法(ESC：キャンセル) - 準備中 プレーン 2");
  EXPECT_EQ(titles[5], L"ルーシー＆リチャードソン法(ESC：キャンセル) - 処理中 プレーン 2 (2回目)");
  std::vector<int> first = window.Percents();
  first.resize(20);
  EXPECT_THAT(first, ElementsAre(17, 25, 37, 45, 52, 60, 67, 75, 82, 90, 100, 10, 20, 30, 40, 52, 65, 77, 90, 100));

  const std::string before = Bytes(Picture(3));
  for (int look = 1; look <= window.looks; ++look) {
    RecordingWindow esc;
    esc.escapeAtLook = look;
    CImgLucy cancelled = Picture(3);
    cancelled.SetProgressHandle(&esc);
    const ShownMessages shown;
    EXPECT_EQ(cancelled.Do(1.4, 2.0, 5.0, 2, nullptr, 1), 0) << look;
    EXPECT_THAT(shown.texts, ElementsAre(L"処理がキャンセルされました。"));
    EXPECT_EQ(Bytes(cancelled), before) << look;
    EXPECT_EQ(esc.looks, look);
    EXPECT_EQ(esc.events.back().code, kProgressEnd);
  }
  RecordingWindow silent;
  CImgLucy single = Picture(1);
  single.SetProgressHandle(&silent);
  silent.escapeAtLook = 1;
  EXPECT_EQ(single.Do(1.4, 2.0, 5.0, 2, nullptr, 0), 1);
  EXPECT_TRUE(silent.events.empty());
  silent.escapeAtLook = 0;
  EXPECT_EQ(single.Do(1.4, 2.0, 5.0, 1, nullptr, 1), 1);
  EXPECT_EQ(silent.events.front().text, L"ルーシー＆リチャードソン法(ESC：キャンセル) - 準備中");
}

TEST(CImgLucy, LeavesNothingBehindWhenMemoryFails) {
  const Threads one(1);
  const std::string before = Bytes(Picture(2));
  int thrown = 0, told = 0;
  for (long n = 1;; ++n) {
    CImgLucy image = Picture(2);
    int result = 0;
    bool raised = false, box = false;
    const FailingMemory memory(n);
    {
      const ShownMessages shown;
      raised = Raises<CMemoryException>([&] { result = image.Do(1.4, 2.0, 5.0, 2, nullptr, 0); });
      box = shown.texts.size() == 1 && shown.texts[0].starts_with(L"メモリが不足しています。");
    }
    ASSERT_EQ(memory.Live(), 0) << n;
    if (!memory.Failed()) {
      EXPECT_EQ(result, 1);
      break;
    }
    EXPECT_EQ(result, 0) << n;
    EXPECT_EQ(Bytes(image), before) << n;
    EXPECT_NE(raised, box) << n;
    (raised ? thrown : told) += 1;
  }
  EXPECT_EQ(thrown, 2);  // the copy of the planes and the point-spread function
  EXPECT_GE(told, 2 * 20);
}

}  // namespace
}  // namespace qmr::test
