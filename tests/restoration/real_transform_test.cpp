#include "qmrimg/restoration/real_transform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <iterator>
#include <limits>
#include <numbers>
#include <vector>

#include "tests/support/images.h"

namespace qmr::test {
namespace {

using Value = std::complex<double>;

// The sum that defines a transform, term by term.
std::vector<Value> SlowTransform(const std::vector<Value>& in, int sign) {
  const std::size_t n = in.size();
  std::vector<Value> roots(n), out(n);
  for (std::size_t k = 0; k < n; ++k) roots[k] = std::polar(1.0, sign * 2.0 * std::numbers::pi * k / n);
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t turn = 0;
    for (std::size_t j = 0; j < n; ++j) {
      out[k] += in[j] * roots[turn];
      turn = turn + k < n ? turn + k : turn + k - n;
    }
  }
  return out;
}

// The largest difference as a share of the largest expected value.
double RelativeError(const std::vector<Value>& expected, const std::vector<Value>& actual) {
  double error = 0.0, largest = 0.0;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    error = std::max(error, std::abs(expected[i] - actual[i]));
    largest = std::max(largest, std::abs(expected[i]));
  }
  return error / largest;
}

// The error of one length, for a line of noise in lane 5 with other lines beside it.
double LineError(int n, FftSign sign) {
  const FftLanes plan(n);
  Random random(static_cast<std::uint64_t>(n));
  std::vector<float> lanes(static_cast<std::size_t>(n) * FftLanes::kElement), work(plan.WorkFloats());
  for (float& value : lanes) value = static_cast<float>(random.Uniform(-1.0, 1.0));
  const auto lane = [&] {
    std::vector<Value> line;
    for (std::size_t j = 5; j < lanes.size(); j += FftLanes::kElement) {
      line.emplace_back(lanes[j], lanes[j + FftLanes::kLanes]);
    }
    return line;
  };
  const std::vector<Value> expected = SlowTransform(lane(), sign == FftSign::kPlus ? 1 : -1);
  std::vector<float> apart(lanes.size());
  plan.Transform(lanes.data(), apart.data(), sign, work.data());
  plan.Transform(lanes.data(), lanes.data(), sign, work.data());
  EXPECT_EQ(lanes, apart) << n;
  return RelativeError(expected, lane());
}

TEST(FftLanes, AgreesWithTheSumAtAnyLength) {
  std::vector<int> lengths = {256, 997, 1009, 1021, 1024, 1155, 1500, 2 * 1009, 3989, 4001, 4096, 31 * 127};
  for (int n = 1; n <= 200; ++n) lengths.push_back(n);
  for (const int n : lengths) {
    for (const FftSign sign : {FftSign::kPlus, FftSign::kMinus}) EXPECT_LT(LineError(n, sign), 1e-6) << n;
  }
}

TEST(RealTransform, AgreesWithTheSumAndComesBackAtAnySize) {
  const int sizes[][2] = {{1, 1},   {1, 53},  {131, 1}, {2, 2},     {3, 16},    {31, 33},
                          {32, 32}, {33, 31}, {64, 97}, {150, 149}, {128, 256}, {263, 90}};
  for (const auto& size : sizes) {
    const int w = size[0], h = size[1];
    SCOPED_TRACE(testing::Message() << w << " x " << h);
    auto transform = RealTransform::Create(w, h);
    ASSERT_TRUE(transform);
    // Images with a border that must stay as it is.
    constexpr std::size_t kGuard = 40;
    constexpr float kUntouched = 7.25e11f;
    const std::size_t count = static_cast<std::size_t>(w) * h;
    const auto back = [&](const std::vector<float>& spectrum) {
      std::vector<float> image(count + 2 * kGuard, kUntouched);
      transform->InverseRows(spectrum.data(), image.data() + kGuard);
      for (std::size_t i = 0; i < kGuard; ++i)
        EXPECT_TRUE(image[i] == kUntouched && image[count + kGuard + i] == kUntouched);
      return std::vector<float>(image.begin() + kGuard, image.end() - kGuard);
    };
    Random random(3);
    std::vector<float> image(count), spectrum(transform->SpectrumFloats(), std::numeric_limits<float>::quiet_NaN());
    for (float& value : image) value = static_cast<float>(random.Uniform(-1.0, 3.0));
    std::vector<float> moved = spectrum;
    transform->ForwardRows(image.data(), spectrum.data());
    transform->ForwardColumns(spectrum.data());

    std::vector<Value> sums(image.begin(), image.end()), half, actual;
    for (auto row = sums.begin(); row != sums.end(); row += w)
      std::ranges::copy(SlowTransform({row, row + w}, -1), row);
    for (int u = 0; u <= w / 2; ++u) {
      std::vector<Value> column;
      for (int v = 0; v < h; ++v) {
        column.push_back(sums[static_cast<std::size_t>(v) * w + u] / static_cast<double>(count));
        const float* const frequency = &spectrum[transform->Position(u, v)];
        actual.emplace_back(frequency[0], frequency[FftLanes::kLanes]);
      }
      std::ranges::copy(SlowTransform(column, -1), std::back_inserter(half));
    }
    EXPECT_LT(RelativeError(half, actual), 1e-6);

    const auto difference = [&](const std::vector<float>& result, int dx, int dy) {
      double largest = 0.0;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          largest = std::max(largest,
                             1.0 * std::abs(result[static_cast<std::size_t>((y + h + dy) % h) * w + (x + w + dx) % w] -
                                            image[static_cast<std::size_t>(y) * w + x]));
      return largest;
    };
    transform->InverseColumns(spectrum.data());
    EXPECT_LT(difference(back(spectrum), 0, 0), 3e-6);

    // Convolution with a point moves the image to its place, correlation moves it the other way.
    const int dx = w / 3, dy = h - 1;
    std::vector<float> point(count);
    point[static_cast<std::size_t>(dy) * w + dx] = 0.5f;
    transform->ForwardRows(point.data(), spectrum.data());
    transform->ForwardColumns(spectrum.data());
    transform->Divide(spectrum.data(), 0.5f / static_cast<float>(count));
    for (const Factor kind : {Factor::kPlain, Factor::kConjugate}) {
      const int sign = kind == Factor::kPlain ? 1 : -1;
      transform->ForwardRows(image.data(), moved.data());
      transform->FilterColumns(moved.data(), spectrum.data(), kind);
      EXPECT_LT(difference(back(moved), sign * dx, sign * dy), 5e-6);
    }
  }
}

TEST(RealTransform, RefusesSizesThatItCannotPrepare) {
  EXPECT_FALSE(RealTransform::Create(0, 5));
  EXPECT_FALSE(RealTransform::Create(5, -1));
  EXPECT_FALSE(RealTransform::Create(std::numeric_limits<int>::max(), 1));
}

}  // namespace
}  // namespace qmr::test
