// Stacks of frames, from single rows to whole strips.
#include "qmrimg/stacking/median_composit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>

#include "qmrimg/geometry/interp.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/stacking/kernels/stack_rows.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

double Middle(const std::vector<double>& sorted) {
  const std::size_t n = sorted.size();
  return n % 2 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) * 0.5;
}

// One pixel by the words of the description.
float ReferencePixel(const StackRule& rule, std::vector<double> v) {
  const double n = static_cast<double>(v.size());
  if (v.empty()) return 0.0f;
  double sum = 0.0;
  switch (rule.method) {
    case StackMethod::kMaximum:
      return static_cast<float>(std::max(1.1754943508222875e-38, *std::max_element(v.begin(), v.end())));
    case StackMethod::kMinimum:
      return static_cast<float>(std::min(3.4028234663852886e+38, *std::min_element(v.begin(), v.end())));
    case StackMethod::kMean:
      for (const double x : v) sum += x;
      return static_cast<float>(sum / n);
    default:
      break;
  }
  std::sort(v.begin(), v.end());
  const double m = Middle(v);
  if (rule.method == StackMethod::kMedian || v.size() == 1) return static_cast<float>(m);
  if (rule.pairRule && v.size() == 2) return rule.kappa >= 1.0 ? static_cast<float>((v[0] + v[1]) / 2.0) : 0.0f;
  for (const double x : v) sum += x;
  const double mean = sum / n;
  double squares = 0.0;
  for (const double x : v) squares += (x - mean) * (x - mean);
  const double sd = std::sqrt(squares / n);
  double kept = 0.0, c = 0.0;
  for (const double x : v) {
    if (x < m - sd * rule.kappa || x > sd * rule.kappa + m) continue;
    kept += x;
    c += 1.0;
  }
  if (c == 0.0) {
    kept = m;
    c = 1.0;
  }
  return static_cast<float>(rule.dropRejected ? kept / c : (kept + (n - c) * m) / n);
}

TEST(SortNetworkTest, SortsEveryPatternOfZerosAndOnes) {
  // A network that sorts all of these sorts everything.
  for (int n = 1; n <= 14; ++n) {
    const std::vector<Comparator> network = SortNetwork(n);
    const std::vector<Comparator> middle = PruneNetwork(network, n, (n - 1) / 2, n / 2);
    EXPECT_LE(middle.size(), network.size());
    for (int pattern = 0; pattern < 1 << n; ++pattern) {
      std::vector<float> wires(static_cast<std::size_t>(n));
      for (int w = 0; w < n; ++w) wires[static_cast<std::size_t>(w)] = static_cast<float>(pattern >> w & 1);
      std::vector<float> pruned = wires;
      RunNetwork<1>(network, wires.data());
      RunNetwork<1>(middle, pruned.data());
      ASSERT_TRUE(std::is_sorted(wires.begin(), wires.end())) << n << " wires, pattern " << pattern;
      for (int w = (n - 1) / 2; w <= n / 2; ++w)
        ASSERT_EQ(pruned[static_cast<std::size_t>(w)], wires[static_cast<std::size_t>(w)]);
    }
  }
}

std::vector<StackRule> Rules() {
  std::vector<StackRule> rules = {{StackMethod::kMedian, 0.0, false, false},
                                  {StackMethod::kMaximum, 0.0, false, false},
                                  {StackMethod::kMinimum, 0.0, false, false},
                                  {StackMethod::kMean, 0.0, false, false}};
  for (const double kappa : {-1.0, 0.0, 0.5, 1.0, 1.5, 3.0}) {
    for (const bool drop : {false, true}) rules.push_back({StackMethod::kClippedMean, kappa, drop, false});
    rules.push_back({StackMethod::kClippedMean, kappa, false, true});
  }
  return rules;
}

class StackRows : public testing::TestWithParam<int> {};

// Rows of a stack in both forms; `missing` says how many frames leave out
// pixels.
struct Stack {
  Stack(int frames, int width, int missing)
      : floats(static_cast<std::size_t>(frames)), doubles(floats.size()), masks(floats.size()), flags(floats.size()) {
    Random random(static_cast<std::uint64_t>(frames * 1000 + width + missing));
    for (std::size_t i = 0; i < floats.size(); ++i) {
      for (int x = 0; x < width; ++x) {
        // Ties, negative stacks and far outliers; some pixels lose frames, in
        // the last third most of them.
        double v = x % 7 == 0 ? random.Integer(0, 3) : random.Uniform(-50.0, 1000.0);
        if (x % 11 == 0) v = -v - 1.0;
        if (random.Integer(0, 20) == 0) v *= 1e6;
        const bool hole = missing == 2 ? random.Integer(0, 9) < (x > 200 ? 8 : 2) : missing == 1 && x % 100 == 50;
        floats[i].push_back(static_cast<float>(v));
        doubles[i].push_back(floats[i].back());
        masks[i].push_back(hole ? 0 : 255);
        flags[i].push_back(hole ? 0 : 1);
      }
      levels.push_back({random.Uniform(-5.0, 5.0), random.Uniform(0.5, 2.0), 17.0});
    }
  }
  std::vector<double> At(std::size_t x, bool levelled) const {
    std::vector<double> values;
    for (std::size_t i = 0; i < floats.size(); ++i) {
      const StackLevels& l = levels[i];
      if (flags[i][x]) values.push_back(levelled ? (doubles[i][x] - l.offset) * l.gain + l.base : doubles[i][x]);
    }
    return values;
  }
  std::vector<std::vector<float>> floats;
  std::vector<std::vector<double>> doubles;
  std::vector<std::vector<std::uint8_t>> masks;
  std::vector<std::vector<int>> flags;
  std::vector<StackLevels> levels;
};

template <class Value>
std::vector<const Value*> Addresses(const std::vector<std::vector<Value>>& rows) {
  std::vector<const Value*> addresses;
  for (const std::vector<Value>& row : rows) addresses.push_back(row.data());
  return addresses;
}

TEST_P(StackRows, AreTheirPixelsForFloatsAndDoubles) {
  const int frames = GetParam();
  for (const int width : {1, 63, 300}) {
    for (const int missing : {0, 1, 2}) {
      const Stack stack(frames, width, missing);
      const auto floats = Addresses(stack.floats);
      const auto doubles = Addresses(stack.doubles);
      const auto masks = Addresses(stack.masks);
      const auto flags = Addresses(stack.flags);
      for (const StackRule& rule : Rules()) {
        for (const bool levelled : {false, true}) {
          if (levelled && rule.method != StackMethod::kMedian && rule.method != StackMethod::kClippedMean) continue;
          const StackLevels* const levels = levelled ? stack.levels.data() : nullptr;
          StackPlan plan(rule, frames);
          const std::size_t w = static_cast<std::size_t>(width);
          std::vector<float> a(w + 8, -3.0f), b(w + 8, -3.0f);
          StackRow<float, std::uint8_t>(plan, floats.data(), missing ? masks.data() : nullptr, levels, width, a.data());
          StackRow<double, int>(plan, doubles.data(), missing ? flags.data() : nullptr, levels, width, b.data());
          EXPECT_EQ(std::vector<float>(a.begin() + width, a.end()), std::vector<float>(8, -3.0f));
          ASSERT_EQ(a, b);
          for (std::size_t x = 0; x < w; ++x) {
            ASSERT_EQ(a[x], ReferencePixel(rule, stack.At(x, levelled)))
                << "pixel " << x << ", method " << static_cast<int>(rule.method) << ", kappa " << rule.kappa;
          }
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Frames, StackRows, testing::Values(0, 1, 2, 3, 5, 11, 30, 64, 65, 90));

TEST(StackRowsTest, NotANumberSortsLast) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const std::vector<std::vector<float>> frames = {{nan, 4.0f, inf}, {3.0f, 4.0f, 1.0f}, {1.0f, 9.0f, -inf}};
  const float* rows[] = {frames[0].data(), frames[1].data(), frames[2].data()};
  StackPlan plan({}, 3);
  float out[3];
  StackRow<float, std::uint8_t>(plan, rows, nullptr, nullptr, 3, out);
  EXPECT_EQ(out[0], 3.0f);
  EXPECT_EQ(out[1], 4.0f);
  EXPECT_EQ(out[2], 1.0f);
}

// ---- The class
// -----------------------------------------------------------------------------------------------------

constexpr int kWidth = 21;
constexpr int kHeight = 13;

class MedianComposit : public testing::Test {
 protected:
  void Frames(int count, int planes) {
    Shape(destination_, kWidth, kHeight, planes);
    for (int i = 0; i < count; ++i) {
      frames_.push_back(std::make_unique<CVynImage>());
      Shape(*frames_.back(), kWidth, kHeight, planes);
      FillNoise(*frames_.back(), static_cast<std::uint64_t>(100 + i), 10.0, 500.0);
      shifts_.push_back({i % 3 == 0 ? 0.0 : 1.0 + i, i % 2 == 0 ? 0.0 : -0.25 * i, i % 4 == 3 ? 2.0 * i : 0.0});
    }
  }
  int StoreAll(CImgMedianComposit& stack, int top, int bottom) {
    int stored = 0;
    for (std::size_t i = 0; i < frames_.size(); ++i) {
      stored +=
          stack.Store(frames_[i].get(), top, bottom, shifts_[i].dx, shifts_[i].dy, shifts_[i].angle, 0, 0, nullptr, 1);
    }
    return stored;
  }
  // The values of pixel (x, y) of the frames that cover it.
  std::vector<double> Values(int plane, int x, int y, const std::function<double(std::size_t, double)>& change) {
    std::vector<double> values;
    for (std::size_t i = 0; i < frames_.size(); ++i) {
      CInterp interp(1);
      const double angle = shifts_[i].angle * 3.141592653589793 / 180.0;
      const bool whole = shifts_[i].dx == std::trunc(shifts_[i].dx) && shifts_[i].dy == std::trunc(shifts_[i].dy);
      interp.SetBParam(shifts_[i].angle != 0 ? 2
                       : whole               ? 0
                                             : 1,
                       frames_[i].get(), -shifts_[i].dx, kWidth - 1 - shifts_[i].dx, 0, 0.0f, 3, std::sin(angle),
                       std::cos(angle), 1.0, 0);
      double row[3 * kWidth];
      int valid[3 * kWidth];
      interp.GetBLineMed(y - shifts_[i].dy, row, valid);
      if (valid[plane * kWidth + x]) values.push_back(change(i, row[plane * kWidth + x]));
    }
    return values;
  }

  struct Place {
    double dx, dy, angle;
  };
  CVynImage destination_;
  std::vector<std::unique_ptr<CVynImage>> frames_;
  std::vector<Place> shifts_;
};

TEST_F(MedianComposit, EveryCalculationInAnyStripsIsItsPixels) {
  Frames(12, 3);
  double offsets[3] = {3.0, -4.0, 5.5};
  double scales[3] = {2.0, 1.5, 0.75};
  double refOffset[3] = {10.0, 20.0, 30.0};
  double refScale[3] = {1.0, 2.0, 3.0};
  const auto item = [&](double* v, std::size_t i, int p) { return v[p] + 0.125 * static_cast<double>(i); };
  struct Calculation {
    StackRule rule;
    bool normalized;
    std::function<void(CImgMedianComposit&, int, int)> run;
  };
  const std::vector<Calculation> calculations = {
      {{}, false, [](auto& s, int a, int b) { s.Calc(a, b); }},
      {{StackMethod::kClippedMean, 1.5, false, false}, false, [](auto& s, int a, int b) { s.Calc(1.5, a, b, 0); }},
      {{StackMethod::kClippedMean, 0.5, true, false}, false, [](auto& s, int a, int b) { s.Calc(0.5, a, b, 1); }},
      {{StackMethod::kMaximum, 0.0, false, false}, false, [](auto& s, int a, int b) { s.CalcMax(a, b); }},
      {{StackMethod::kMinimum, 0.0, false, false}, false, [](auto& s, int a, int b) { s.CalcMin(a, b); }},
      {{}, true, [](auto& s, int a, int b) { s.NewCalc(a, b); }},
      {{StackMethod::kClippedMean, 1.25, false, true}, true, [](auto& s, int a, int b) { s.NewCalc(1.25, a, b); }},
  };
  for (const Calculation& calculation : calculations) {
    std::string whole;
    for (const int strip : {kHeight, 5, 1}) {
      for (int p = 0; p < 3; ++p) Fill(destination_, [](int, int, int) { return -5.0f; });
      CImgMedianComposit stack(&destination_, 0);
      stack.SetRefNormalizeParam(refOffset, refScale);
      for (std::size_t i = 0; i < frames_.size(); ++i) {
        double o[3], s[3];
        for (int p = 0; p < 3; ++p) {
          o[p] = item(offsets, i, p);
          s[p] = item(scales, i, p);
        }
        stack.AddNormalizeParam(o, s);
      }
      for (int top = 0; top < kHeight; top += strip) {
        // The last strip reaches beyond the image.
        ASSERT_EQ(StoreAll(stack, top, top + strip - 1), 12);
        calculation.run(stack, top, top + strip - 1);
      }
      if (whole.empty()) whole = Bytes(destination_);
      EXPECT_EQ(Bytes(destination_), whole) << "strips of " << strip;
    }
    const auto pixel = [&](int p, int x, int y) {
      return ReferencePixel(calculation.rule, Values(p, x, y, [&](std::size_t i, double v) {
                              if (!calculation.normalized) return v;
                              return (v - item(offsets, i, p)) * (refScale[p] / item(scales, i, p)) + refOffset[p];
                            }));
    };
    EXPECT_TRUE(PixelsAre(pixel, destination_));
  }
}

TEST_F(MedianComposit, OffsetsCycleElementByElement) {
  Frames(1, 3);
  CImgMedianComposit stack(&destination_, 0);
  float offsets[3] = {100.0f, 200.0f, 300.0f};
  ASSERT_EQ(stack.Store(frames_[0].get(), 2, 3, 0.0, 0.0, 0.0, 0, 1, offsets, 0), 1);
  stack.Calc(2, 3);
  const auto pixel = [&](int p, int x, int y) {
    return y == 2 || y == 3 ? At(*frames_[0], p, x, y) + offsets[(((y - 2) * 3 + p) * kWidth + x) % 3] : 0.0f;
  };
  EXPECT_TRUE(PixelsAre(pixel, destination_));
}

TEST_F(MedianComposit, ACalculationUsesUpItsLines) {
  Frames(1, 1);
  CImgMedianComposit stack(&destination_, 1);
  // A shift of 3 leaves three columns to nobody.
  stack.Store(frames_[0].get(), 0, 0, 3.0, 0, 0, 0, 0, nullptr, 0);
  stack.CalcMin(0, 0);
  EXPECT_EQ(At(destination_, 0, 2, 0), 0.0f);
  EXPECT_EQ(At(destination_, 0, 3, 0), At(*frames_[0], 0, 0, 0));
  stack.CalcMax(0, 0);
  EXPECT_EQ(At(destination_, 0, 3, 0), 0.0f);
}

TEST_F(MedianComposit, RefusesOtherStripsAndMissingItems) {
  Frames(3, 1);
  FillNoise(destination_, 77);
  const std::string before = Bytes(destination_);
  CImgMedianComposit stack(&destination_, 0);
  ASSERT_EQ(stack.Store(frames_[0].get(), 2, 4, 0, 0, 0, 0, 0, nullptr, 0), 1);
  EXPECT_EQ(stack.Store(frames_[1].get(), 2, 5, 0, 0, 0, 0, 0, nullptr, 0), 0);
  EXPECT_EQ(stack.Store(nullptr, 2, 4, 0, 0, 0, 0, 0, nullptr, 0), 0);
  stack.Calc(1, 4);
  EXPECT_EQ(Bytes(destination_), before);
  double values[3] = {1.0, 1.0, 1.0};
  stack.AddNormalizeParam(values, values);
  ASSERT_EQ(stack.Store(frames_[1].get(), 2, 4, 0, 0, 0, 0, 0, nullptr, 0), 1);
  EXPECT_TRUE(Raises<CInvalidArgException>([&] { stack.NewCalc(2, 4); }));
  EXPECT_EQ(Bytes(destination_), before);
  // The lines are still there.
  stack.CalcMin(2, 4);
  EXPECT_EQ(At(destination_, 0, 5, 3), std::min(At(*frames_[0], 0, 5, 3), At(*frames_[1], 0, 5, 3)));
  // Strips outside the image hold nothing and write nothing.
  const std::string after = Bytes(destination_);
  EXPECT_EQ(stack.Store(frames_[0].get(), kHeight, kHeight + 3, 0, 0, 0, 0, 0, nullptr, 0), 1);
  stack.Calc(kHeight, kHeight + 3);
  stack.Calc(5, 4);
  EXPECT_EQ(Bytes(destination_), after);
}

// Stored lines hold rows of the shape that the destination had.
TEST_F(MedianComposit, RefusesADestinationOfAnotherShape) {
  Frames(1, 3);
  CImgMedianComposit stack(&destination_, 0);
  Shape(destination_, kWidth, kHeight, 3);
  ASSERT_EQ(stack.Store(frames_[0].get(), 2, 4, 0, 0, 0, 0, 0, nullptr, 0), 1);
  for (const int planes : {1, 3}) {
    Shape(destination_, planes == 3 ? 5 * kWidth : kWidth, kHeight, planes);
    const std::string before = Bytes(destination_);
    stack.Calc(2, 4);
    EXPECT_EQ(stack.Store(frames_[0].get(), 2, 4, 0, 0, 0, 0, 0, nullptr, 0), 0);
    EXPECT_EQ(Bytes(destination_), before);
  }
  Shape(destination_, kWidth, kHeight, 3);
  stack.Calc(2, 4);
  EXPECT_EQ(At(destination_, 1, 5, 3), At(*frames_[0], 1, 5, 3));
}

TEST(MedianCompositProgress, ReportsEachStripOnTheDestination) {
  CVynImage destination = Shaped(4, 10, 1);
  CVynImage frame = Shaped(4, 10, 1);
  RecordingWindow window;
  destination.SetProgressHandle(&window);
  {
    CImgMedianComposit stack(&destination, 2);
    for (int top = 0; top < 10; top += 5) {
      stack.Store(&frame, top, top + 4, 0, 0, 0, 0, 0, nullptr, 0);
      stack.Calc(top, top + 4);
    }
  }
  EXPECT_EQ(window.Percents(), (std::vector<int>{40, 90}));
  ASSERT_FALSE(window.events.empty());
  EXPECT_EQ(window.events.front().code, kProgressTitle);
  EXPECT_EQ(window.events.front().text, L"比較明コンポジット処理中...");
  EXPECT_EQ(window.events.back().code, kProgressEnd);
}

TEST(MedianCompositMemory, LackOfMemoryIsTold) {
  // A destination whose strip has more elements than an array can hold; only
  // its shape is asked.
  CVynImage destination, frame = Shaped(4, 4, 1);
  destination.SetWidth(2000000);
  destination.SetHeight(2000000);
  destination.SetPlanes(1);
  const ShownMessages shown;
  CImgMedianComposit stack(&destination, 0);
  EXPECT_EQ(stack.Store(&frame, 0, 1999999, 0, 0, 0, 0, 0, nullptr, 0), 0);
  EXPECT_EQ(shown.texts, std::vector<std::wstring>{L"Cannot create LineData array (2147483647)."});
}

}  // namespace
}  // namespace qmr::test
