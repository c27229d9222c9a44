#include "tests/support/images.h"

#include <cmath>
#include <cstring>
#include <sstream>

#include "qmrimg/platform/message_box.h"
#include "qmrimg/store/parallel.h"

namespace qmr::test {

double Random::Uniform() {
  // xorshift64*
  state_ ^= state_ >> 12;
  state_ ^= state_ << 25;
  state_ ^= state_ >> 27;
  return (static_cast<double>((state_ * 0x2545F4914F6CDD1Dull) >> 11) + 0.5) / 9007199254740992.0;
}

double Random::Normal() {
  const double radius = std::sqrt(-2.0 * std::log(Uniform()));
  return radius * std::cos(6.283185307179586 * Uniform());
}

int Random::Integer(int low, int high) {
  return low + static_cast<int>(Uniform() * (high - low + 1));
}

void Shape(CVynImage& image, int width, int height, int planes) {
  const CImage shape(-32, width, height, planes, 1.0, 0.0, 1);
  ASSERT_TRUE(static_cast<CImage&>(image).Create(shape, nullptr, nullptr));
}

void Fill(CVynImage& image, const std::function<float(int, int, int)>& value) {
  for (int p = 0; p < image.GetPlanes(); ++p) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      auto* row = static_cast<float*>(image.GetImageAdr(0, y, p, 0, 0, nullptr));
      for (int x = 0; x < image.GetWidth(); ++x) row[x] = value(p, x, y);
    }
  }
}

void FillNoise(CVynImage& image, std::uint64_t seed, double low, double high) {
  Random random(seed);
  Fill(image, [&](int, int, int) { return static_cast<float>(random.Uniform(low, high)); });
}

float At(const CVynImage& image, int plane, int x, int y) {
  return *static_cast<const float*>(image.GetImageAdr(x, y, plane, 1, 0, nullptr));
}

std::vector<float> Pixels(const CVynImage& image, int plane) {
  std::vector<float> pixels;
  for (int y = 0; y < image.GetHeight(); ++y) {
    const auto* row = static_cast<const float*>(image.GetImageAdr(0, y, plane, 1, 0, nullptr));
    pixels.insert(pixels.end(), row, row + image.GetWidth());
  }
  return pixels;
}

std::string Bytes(const CVynImage& image) {
  std::string bytes;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const std::vector<float> plane = Pixels(image, p);
    bytes.append(reinterpret_cast<const char*>(plane.data()), plane.size() * sizeof(float));
  }
  return bytes;
}

namespace {

testing::AssertionResult Compare(const CVynImage& expected, const CVynImage& actual, double tolerance) {
  if (expected.GetWidth() != actual.GetWidth() || expected.GetHeight() != actual.GetHeight() ||
      expected.GetPlanes() != actual.GetPlanes()) {
    return testing::AssertionFailure() << "shapes differ: " << expected.GetWidth() << " x " << expected.GetHeight()
                                       << " x " << expected.GetPlanes() << " and " << actual.GetWidth() << " x "
                                       << actual.GetHeight() << " x " << actual.GetPlanes();
  }
  int count = 0;
  double largest = 0.0;
  std::ostringstream first;
  for (int p = 0; p < expected.GetPlanes(); ++p) {
    for (int y = 0; y < expected.GetHeight(); ++y) {
      for (int x = 0; x < expected.GetWidth(); ++x) {
        const float e = At(expected, p, x, y);
        const float a = At(actual, p, x, y);
        if (std::memcmp(&e, &a, sizeof e) == 0 || (std::isnan(e) && std::isnan(a))) continue;
        const double error = std::fabs(static_cast<double>(e) - a);
        if (error <= tolerance) continue;
        if (++count <= 5) first << "\n  plane " << p << " (" << x << ", " << y << "): expected " << e << ", got " << a;
        if (!(error <= largest)) largest = error;
      }
    }
  }
  if (count == 0) return testing::AssertionSuccess();
  return testing::AssertionFailure() << count << " pixels differ, by at most " << largest << first.str();
}

}  // namespace

testing::AssertionResult SamePixels(const CVynImage& expected, const CVynImage& actual) {
  return Compare(expected, actual, 0.0);
}

testing::AssertionResult NearPixels(const CVynImage& expected, const CVynImage& actual, double tolerance) {
  return Compare(expected, actual, tolerance);
}

testing::AssertionResult PixelsAre(const std::function<float(int, int, int)>& expected, const CVynImage& actual) {
  CVynImage image(actual);
  Fill(image, expected);
  return SamePixels(image, actual);
}

ShownMessages::ShownMessages() {
  SetMessageBoxHook(
      [](const wchar_t* text, unsigned, void* context) {
        static_cast<ShownMessages*>(context)->texts.emplace_back(text);
        return 1;
      },
      this);
}
ShownMessages::~ShownMessages() {
  SetMessageBoxHook(nullptr, nullptr);
}

Threads::Threads(int count) {
  SetMaxThreads(count);
}
Threads::~Threads() {
  SetMaxThreads(0);
}

testing::AssertionResult SameForAllThreads(const std::function<std::string()>& make) {
  std::string one;
  for (const int count : {1, 2, 3, 8}) {
    const Threads threads(count);
    const std::string bytes = make();
    if (count == 1)
      one = bytes;
    else if (bytes != one)
      return testing::AssertionFailure() << "the result with " << count << " threads differs from that with one";
  }
  return testing::AssertionSuccess();
}

}  // namespace qmr::test
