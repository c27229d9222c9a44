// Images for tests, and comparisons that say what differs.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "qmrimg/image/vyn_image.h"

namespace qmr::test {

// A small generator whose values are the same everywhere.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed * 2 + 1) {}
  // Uniform in 0..1, exclusive.
  double Uniform();
  double Uniform(double low, double high) { return low + (high - low) * Uniform(); }
  double Normal();
  int Integer(int low, int high);

 private:
  std::uint64_t state_;
};

// Gives an image of the object's class its shape: float pixels, levels 0..255, all pixels 0.
void Shape(CVynImage& image, int width, int height, int planes);
// Pixels from a function of plane, x and y.
void Fill(CVynImage& image, const std::function<float(int plane, int x, int y)>& value);
// Uniform noise, a different one in each plane.
void FillNoise(CVynImage& image, std::uint64_t seed, double low = 0.0, double high = 255.0);

// Images made by these.
template <class Image = CVynImage>
Image Shaped(int width, int height, int planes) {
  Image image;
  Shape(image, width, height, planes);
  return image;
}
template <class Image = CVynImage>
Image Noise(int width, int height, int planes, std::uint64_t seed, double low = 0.0, double high = 255.0) {
  Image image;
  Shape(image, width, height, planes);
  FillNoise(image, seed, low, high);
  return image;
}

float At(const CVynImage& image, int plane, int x, int y);
std::vector<float> Pixels(const CVynImage& image, int plane);
// All planes as bytes, for comparisons of every bit.
std::string Bytes(const CVynImage& image);

// Fails with the first differing pixels and the largest error.
testing::AssertionResult SamePixels(const CVynImage& expected, const CVynImage& actual);
testing::AssertionResult NearPixels(const CVynImage& expected, const CVynImage& actual, double tolerance);
// The same with what a function says of each pixel.
testing::AssertionResult PixelsAre(const std::function<float(int plane, int x, int y)>& expected,
                                   const CVynImage& actual);

// Whether a call raises this exception of the framework, which is deleted.
template <class Exception>
bool Raises(const std::function<void()>& call) {
  try {
    call();
    return false;
  } catch (Exception* e) {
    e->Delete();
    return true;
  }
}

// Takes what message boxes show for the length of a scope.
class ShownMessages {
 public:
  ShownMessages();
  ~ShownMessages();
  std::vector<std::wstring> texts;
};

// Sets the thread count for the length of a scope.
class Threads {
 public:
  explicit Threads(int count);
  ~Threads();
};

// Runs `make`, which gives an image's bytes, with 1, 2, 3 and 8 threads; fails when they differ.
testing::AssertionResult SameForAllThreads(const std::function<std::string()>& make);

}  // namespace qmr::test
