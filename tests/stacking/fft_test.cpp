#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <numbers>
#include <string>
#include <vector>

#include "qmrimg/stacking/fft.h"
#include "qmrimg/stacking/fftd.h"
#include "tests/support/images.h"

namespace qmr::test {
namespace {

using Value = std::complex<double>;

constexpr double kPi = std::numbers::pi;

// The sum that defines a transform, term by term.
std::vector<Value> SlowTransform(const std::vector<Value>& in, int sign) {
  const std::size_t n = in.size();
  std::vector<Value> roots(n), out(n);
  for (std::size_t k = 0; k < n; ++k) roots[k] = std::polar(1.0, sign * 2.0 * kPi * static_cast<double>(k) / n);
  for (std::size_t k = 0; k < n; ++k) {
    for (std::size_t j = 0; j < n; ++j) out[k] += in[j] * roots[j * k % n];
  }
  return out;
}

template <class Element>
std::vector<Value> Values(const Element* data, int count) {
  std::vector<Value> values;
  for (int i = 0; i < count; ++i) values.emplace_back(data[i].re, data[i].im);
  return values;
}

template <class Element>
void FillRandom(Element* data, int count, std::uint64_t seed) {
  Random random(seed);
  for (int i = 0; i < count; ++i) {
    const float re = static_cast<float>(random.Uniform(-1.0, 1.0));
    data[i] = Element(re, static_cast<float>(random.Uniform(-1.0, 1.0)));
  }
}

double Largest(const std::vector<Value>& values) {
  double largest = 0.0;
  for (const Value& v : values) largest = std::max(largest, std::abs(v));
  return largest;
}

// The largest difference as a share of the largest expected value.
double RelativeError(const std::vector<Value>& expected, const std::vector<Value>& actual, double scale = 1.0) {
  double error = 0.0;
  for (std::size_t i = 0; i < expected.size(); ++i) error = std::max(error, std::abs(expected[i] * scale - actual[i]));
  return error / (Largest(expected) * scale);
}

template <class Engine>
std::string Bytes(const Engine& engine) {
  const std::size_t bytes = 8u * static_cast<std::size_t>(engine.GetWidth()) * engine.GetHeight();
  return std::string(reinterpret_cast<const char*>(engine.GetImageAdrA()), bytes) +
         std::string(reinterpret_cast<const char*>(engine.GetImageAdrB()), bytes);
}

class LineLength : public testing::TestWithParam<int> {};

TEST_P(LineLength, TransformsAgreeWithTheSum) {
  const int n = GetParam();
  std::vector<dcomplex> line(static_cast<std::size_t>(n));
  FillRandom(line.data(), n, 7);
  const std::vector<Value> in = Values(line.data(), n);
  const std::vector<Value> plus = SlowTransform(in, 1), minus = SlowTransform(in, -1);
  CFftd engine;
  const auto run = [&](bool splitRadix, int direction) {
    std::vector<dcomplex> copy = line;
    dcomplex* const result =
        splitRadix ? engine.LineFFT_SR(copy.data(), n, direction) : engine.LineFFT(copy.data(), n, direction);
    EXPECT_EQ(result, copy.data());
    return Values(copy.data(), n);
  };
  EXPECT_LT(RelativeError(plus, run(true, 0)), 1e-6);
  EXPECT_LT(RelativeError(minus, run(true, 1), 1.0 / n), 1e-6);
  EXPECT_LT(RelativeError(minus, run(false, 0)), 1e-6);
  EXPECT_LT(RelativeError(plus, run(false, 1), 1.0 / n), 1e-6);

  CFft unitary;
  ASSERT_EQ(unitary.Create(n, 1), 1);
  for (int i = 0; i < n; ++i) unitary.GetImageAdr()[i] = complex(line[i].re, line[i].im);
  EXPECT_EQ(unitary.Do(0, 0), 0);
  EXPECT_LT(RelativeError(minus, Values(unitary.GetImageAdr(), n), 1.0 / std::sqrt(n)), 1e-6);
}

INSTANTIATE_TEST_SUITE_P(PowersOfTwo, LineLength,
                         testing::Values(1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096));

TEST(FftdLine, OtherLengthsStayAsTheyAre) {
  dcomplex line[3] = {{1, 2}, {3, 4}, {5, 6}};
  CFftd engine;
  for (const int n : {-4, 0, 3}) engine.LineFFT_SR(line, n, 0);
  EXPECT_EQ(line[0].im, 2.0f);
  EXPECT_EQ(line[2].re, 5.0f);
  EXPECT_EQ(engine.LineFFT_SR(nullptr, 4, 0), nullptr);
}

struct Shape2 {
  int width;
  int height;
};

class ArrayShape : public testing::TestWithParam<Shape2> {};

// A column must have the bits that it has alone, wherever it stands among the
// columns transformed together.
TEST_P(ArrayShape, DoIsTheLineTransformOfRowsThenColumns) {
  const auto [w, h] = GetParam();
  for (const int direction : {0, 1}) {
    CFftd engine;
    ASSERT_EQ(engine.Create(w, h), 1);
    FillRandom(engine.GetImageAdr(), w * h, 11);
    std::vector<dcomplex> expected(engine.GetImageAdr(), engine.GetImageAdr() + w * h);
    for (int y = 0; y < h; ++y) engine.LineFFT_SR(&expected[static_cast<std::size_t>(y) * w], w, direction);
    std::vector<dcomplex> column(static_cast<std::size_t>(h));
    for (int x = 0; x < w; ++x) {
      for (int y = 0; y < h; ++y) column[y] = expected[static_cast<std::size_t>(y) * w + x];
      engine.LineFFT_SR(column.data(), h, direction);
      for (int y = 0; y < h; ++y) expected[static_cast<std::size_t>(y) * w + x] = column[y];
    }
    engine.Do(direction, 0);
    EXPECT_EQ(std::memcmp(expected.data(), engine.GetImageAdr(), expected.size() * sizeof(dcomplex)), 0);
  }
}

TEST_P(ArrayShape, InverseUndoesForwardOnBothEngines) {
  const auto [w, h] = GetParam();
  CFftd fast;
  CFft unitary;
  ASSERT_EQ(fast.Create(w, h), 1);
  ASSERT_EQ(unitary.Create(w, h), 1);
  FillRandom(fast.GetImageAdrB(), w * h, 3);
  FillRandom(unitary.GetImageAdrB(), w * h, 3);
  const std::vector<Value> before = Values(fast.GetImageAdrB(), w * h);
  fast.Do(0, 1);
  unitary.Do(0, 1);
  // Same frequencies up to the scale; the opposite exponent puts frequency k at
  // place -k.
  double difference = 0.0;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const dcomplex f = fast.GetImageAdrB()[y * w + x];
      const complex u = unitary.GetImageAdrB()[(h - y) % h * w + (w - x) % w];
      difference = std::max(difference, std::abs(Value(f.re, f.im) / std::sqrt(1.0 * w * h) - Value(u.re, u.im)));
    }
  }
  EXPECT_LT(difference, 1e-5);
  fast.Do(1, 1);
  unitary.Do(1, 1);
  EXPECT_LT(RelativeError(before, Values(fast.GetImageAdrB(), w * h)), 1e-6);
  EXPECT_LT(RelativeError(before, Values(unitary.GetImageAdrB(), w * h)), 1e-6);
}

INSTANTIATE_TEST_SUITE_P(Shapes, ArrayShape,
                         testing::Values(Shape2{1, 1}, Shape2{2, 1}, Shape2{1, 8}, Shape2{4, 4}, Shape2{8, 32},
                                         Shape2{64, 2}, Shape2{512, 32}, Shape2{16, 1024}, Shape2{256, 256}));

TEST(Fftd, ResultsDoNotDependOnTheNumberOfThreads) {
  EXPECT_TRUE(SameForAllThreads([] {
    CFftd engine;
    engine.Create(256, 128);
    FillRandom(engine.GetImageAdrA(), 256 * 128, 1);
    FillRandom(engine.GetImageAdrB(), 256 * 128, 2);
    for (const int which : {0, 1}) {
      engine.Windowing(which);
      engine.Do(0, which);
      engine.ToAmpPhase(which);
      engine.ToLogPolar(0, 1, 0, 180, 1, which);
      engine.Do(0, which);
    }
    engine.CalcPOC();
    engine.Do(1, 0);
    engine.Swap(0);
    double numbers[3];
    engine.PeakOfPOC(nullptr, nullptr, numbers[0], numbers[1], numbers[2]);
    return Bytes(engine) + std::string(reinterpret_cast<const char*>(numbers), sizeof(numbers));
  }));
}

TEST(Fft, SizesAreRaisedToPowersOfTwo) {
  const int cases[][3] = {{-5, 0, 0}, {0, 0, 0}, {1, 1, 1}, {3, 4, 2}, {512, 512, 512}, {1025, 2048, 1024}};
  for (const auto& [n, ceil, floor] : cases) {
    EXPECT_EQ(CFft::GetCeilPowerOf2(n), ceil) << n;
    EXPECT_EQ(CFft::GetFloorPowerOf2(n), floor) << n;
  }
}

template <class Engine>
class BothEngines : public testing::Test {};
using Engines = testing::Types<CFft, CFftd>;
TYPED_TEST_SUITE(BothEngines, Engines);

template <class Engine>
void UseAll(Engine& engine, int which) {
  engine.Do(0, which);
  engine.Windowing(which);
  engine.ToAmpPhase(which);
  engine.ToReIm(which);
  engine.ToLogPolar(0, 1, 0, 180, 1, which);
}

TYPED_TEST(BothEngines, RefusesOtherSizesAndArraysAndStaysUsable) {
  TypeParam engine;
  EXPECT_EQ(engine.Create(0, 8), 0);
  EXPECT_EQ(engine.Create(8, -1), 0);
  EXPECT_EQ(engine.Create(1 << 30, 1 << 30), 0);
  EXPECT_EQ(engine.GetImageAdr(), nullptr);
  engine.Init();
  engine.CalcPOC();
  UseAll(engine, 0);
  ASSERT_EQ(engine.Create(5, 3), 1);
  EXPECT_EQ(engine.GetWidth(), 8);
  EXPECT_EQ(engine.GetHeight(), 4);
  EXPECT_EQ(engine.GetImageAdrB()[31].re, 0.0f);
  FillRandom(engine.GetImageAdrA(), 32, 1);
  FillRandom(engine.GetImageAdrB(), 32, 2);
  const std::string before = Bytes(engine);
  for (const int which : {-1, 2}) UseAll(engine, which);
  EXPECT_EQ(Bytes(engine), before);
}

TYPED_TEST(BothEngines, AmplitudeAndPhaseAreCentredAndComeBack) {
  TypeParam engine;
  const int w = 32, h = 16;
  ASSERT_EQ(engine.Create(w, h), 1);
  FillRandom(engine.GetImageAdr(), w * h, 5);
  engine.GetImageAdr()[0] = {-3.0f, 4.0f};
  const std::vector<Value> before = Values(engine.GetImageAdr(), w * h);
  engine.ToAmpPhase(0);
  const auto centre = engine.GetImageAdr()[h / 2 * w + w / 2];
  EXPECT_FLOAT_EQ(centre.re, 5.0f);
  EXPECT_FLOAT_EQ(centre.im, static_cast<float>(std::atan2(4.0, -3.0)));
  engine.ToReIm(0);
  EXPECT_LT(RelativeError(before, Values(engine.GetImageAdr(), w * h)), 1e-6);
}

// A ring about the centre is one row of the log-polar picture, a ray one
// column.
TYPED_TEST(BothEngines, LogPolarTurnsRingsIntoRowsAndRaysIntoColumns) {
  TypeParam engine;
  const int n = 256;
  ASSERT_EQ(engine.Create(n, n), 1);
  const double centre = n * 0.5 - 0.5;
  const auto draw = [&](auto&& value) {
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        const double dx = x - centre, dy = y - centre;
        engine.GetImageAdr()[y * n + x] = {static_cast<float>(value(std::hypot(dx, dy), std::atan2(dy, dx))), 7.0f};
      }
    }
  };
  const auto brightest = [&](int row, int column) {  // along the column or row that is not -1
    int best = 0;
    for (int i = 1; i < n; ++i) {
      const auto* data = engine.GetImageAdr();
      if (column >= 0 ? data[i * n + column].re > data[best * n + column].re
                      : data[row * n + i].re > data[row * n + best].re)
        best = i;
    }
    return best;
  };
  const bool fast = std::is_same_v<TypeParam, CFftd>;
  const double start = std::log(4 + (fast ? 1.0 : 0.5)), end = std::log(n / 2 - 0.5);
  const double ring = 60.0;
  draw([&](double r, double) { return std::exp(-0.5 * (r - ring) * (r - ring)); });
  engine.ToLogPolar(4, 1, 0, 180, 0, 0);
  const double ringRow = (std::log(ring) - start) / (end - start) * n;
  for (const int column : {0, 77, 200}) EXPECT_NEAR(brightest(-1, column), ringRow, 1.0) << column;
  EXPECT_EQ(engine.GetImageAdr()[n * 3 + 3].im, 0.0f);

  const double ray = 40.0 * kPi / 180.0;
  draw([&](double r, double t) { return std::exp(-0.5 * std::pow(r * (t - ray), 2)); });
  engine.ToLogPolar(4, 1, 0, 180, 0, 0);
  for (const int row : {150, 200, 250}) EXPECT_NEAR(brightest(row, -1), 40.0 / 180.0 * n, 1.0) << row;
}

TEST(FftdLogPolar, LogarithmCountsFromTheMinimumUnlessItIsPositive) {
  const auto constant = [](float value, float other) {
    CFftd engine;
    engine.Create(64, 64);
    std::fill_n(engine.GetImageAdr(), 64 * 64, dcomplex(value, 0.0f));
    engine.GetImageAdr()[0].re = other;
    engine.ToLogPolar(1, 1, 0, 180, 1, 0);
    return engine.GetImageAdr()[20 * 64 + 20].re;
  };
  EXPECT_FLOAT_EQ(constant(4.0f, 2.0f), static_cast<float>(std::log(5.0)));
  EXPECT_FLOAT_EQ(constant(4.0f, -2.0f), static_cast<float>(std::log(7.0)));
}

TEST(FftdWindow, IsARaisedCosineThatEndsAtHalfTheShorterSide) {
  CFftd engine;
  const int w = 512, h = 256;
  ASSERT_EQ(engine.Create(w, h), 1);
  std::fill_n(engine.GetImageAdr(), w * h, dcomplex(2.0f, -1.0f));
  engine.Windowing(0);
  double worst = 0.0;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const double d = std::hypot(x - 256.0, y - 128.0);
      const double weight = d >= 128.0 ? 0.0 : 0.5 * std::cos(kPi * d / 128.0) + 0.5;
      const dcomplex v = engine.GetImageAdr()[y * w + x];
      worst = std::max({worst, std::abs(v.re - 2.0 * weight), std::abs(v.im + weight)});
      if (d >= 128.0) {
        ASSERT_EQ(v.re, 0.0f) << x << ' ' << y;
      }
    }
  }
  EXPECT_LT(worst, 2e-7);
  EXPECT_EQ(engine.GetImageAdr()[128 * w + 256].re, 2.0f);
}

TEST(FftWindow, RisesAgainBeyondItsRadius) {
  CFft engine;
  ASSERT_EQ(engine.Create(64, 128), 1);
  std::fill_n(engine.GetImageAdr(), 64 * 128, complex(1.0f, 1.0f));
  engine.Windowing(0);
  EXPECT_NEAR(engine.GetImageAdr()[32 * 64 + 32].re, 0.0f,
              1e-7);                                     // 32 rows above the middle
  EXPECT_NEAR(engine.GetImageAdr()[32].im, 1.0f, 1e-7);  // 64 rows above
}

TEST(FftInterp, ModesAndEdges) {
  CFft unitary;
  CFftd fast;
  ASSERT_EQ(unitary.Create(4, 2), 1);
  ASSERT_EQ(fast.Create(4, 2), 1);
  for (int i = 0; i < 8; ++i) {
    unitary.GetImageAdr()[i] = complex(static_cast<float>(i), static_cast<float>(-i));
    fast.GetImageAdr()[i] = dcomplex(static_cast<float>(i), static_cast<float>(-i));
  }
  const auto at = [&](int part, int mode, double x, double y) {
    const double value = fast.Interp(fast.GetImageAdr(), part, mode, x, y);
    EXPECT_EQ(value, unitary.Interp(unitary.GetImageAdr(), part, mode, x, y));
    return value;
  };
  EXPECT_EQ(at(0, 0, 1.4, 0.5), 5.0);
  EXPECT_EQ(at(1, 0, 9.0, -9.0), -3.0);
  EXPECT_EQ(at(0, 1, 2.0, 1.0), 6.0);
  EXPECT_DOUBLE_EQ(at(0, 1, 1.25, 0.5), 3.25);
  EXPECT_DOUBLE_EQ(at(1, 1, 3.5, 1.5), -7.0);
  EXPECT_EQ(at(0, 2, 1.0, 1.0), 0.0);
  EXPECT_TRUE(std::isfinite(at(0, 1, 1e300, -1e300)));
  // A weight of zero keeps its neighbour out, also one that is no number.
  fast.GetImageAdr()[1].re = std::nanf("");
  EXPECT_EQ(fast.Interp(fast.GetImageAdr(), 0, 1, 0.0, 0.25), 1.0);
}

TEST(Fft, DeconvolutionUndoesAGaussianBlur) {
  const int n = 64;
  CFft image, blur;
  ASSERT_EQ(image.Create(n, n), 1);
  ASSERT_EQ(blur.Create(n, n), 1);
  FillRandom(image.GetImageAdr(), n * n, 9);
  const std::vector<Value> before = Values(image.GetImageAdr(), n * n);
  blur.SetGauss(0.5);
  EXPECT_FLOAT_EQ(blur.GetImageAdr()[0].re, 1000.0f * 0.5f / 3.14159f);
  EXPECT_EQ(blur.GetImageAdr()[1].re, blur.GetImageAdr()[n - 1].re);
  blur.Do(0, 0);
  double low = -1.0, high = -1.0;
  blur.GetMinMax(&low, &high);
  const complex zero = blur.GetImageAdr()[0];
  EXPECT_NEAR(high, 1.0 * zero.re * zero.re,
              high * 1e-6);  // a Gaussian has its peak at frequency zero
  EXPECT_GT(low, 0.0);
  image.Do(0, 0);
  for (int i = 0; i < n * n; ++i) {  // convolve
    const Value a(image.GetImageAdr()[i].re, image.GetImageAdr()[i].im);
    const Value c = a * Value(blur.GetImageAdr()[i].re, blur.GetImageAdr()[i].im);
    image.GetImageAdr()[i] = complex(static_cast<float>(c.real()), static_cast<float>(c.imag()));
  }
  image.Convolution(&blur, 0.0);
  image.Do(1, 0);
  EXPECT_LT(RelativeError(before, Values(image.GetImageAdr(), n * n)), 1e-5);
  image.Convolution(nullptr, 1.0);
  CFft().GetMinMax(&low, &high);
  EXPECT_TRUE(low == 0.0 && high == 0.0);
}

TEST(Fft, CorrelationWantsBothArraysInTheSameForm) {
  const ShownMessages shown;
  CFft engine;
  ASSERT_EQ(engine.Create(8, 8), 1);
  FillRandom(engine.GetImageAdrA(), 64, 1);
  FillRandom(engine.GetImageAdrB(), 64, 2);
  engine.ToAmpPhase(0);
  engine.CalcPOC();
  engine.ToReIm(0);
  engine.ToAmpPhase(1);
  engine.CalcPOC();
  engine.ToAmpPhase(0);
  const Value a(engine.GetImageAdrA()[0].re, 0.0);
  engine.CalcPOC();  // both amplitudes: turned back first
  ASSERT_EQ(shown.texts.size(), 2u);
  EXPECT_EQ(shown.texts[0], L"CFft::CalcPOC(): FFT array A is amplitude.");
  EXPECT_EQ(shown.texts[1], L"CFft::CalcPOC(): FFT array B is amplitude.");
  for (int i = 0; i < 64; ++i) {
    EXPECT_NEAR(std::hypot(engine.GetImageAdrA()[i].re, engine.GetImageAdrA()[i].im), 1.0, 1e-6);
  }
}

}  // namespace
}  // namespace qmr::test
