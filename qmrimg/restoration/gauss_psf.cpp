#include "qmrimg/restoration/gauss_psf.h"

#include <cmath>
#include <cstddef>
#include <new>
#include <stdexcept>

#include "qmrimg/platform/exception.h"

namespace qmr {
namespace {

std::vector<float> Allocate(int width, int height) {
  if (width < 1 || height < 1) return {};
  try {
    return std::vector<float>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  } catch (const std::length_error&) {
    AfxThrowMemoryException();
  }
}

}  // namespace

std::vector<float> MakeGauss(double sigma, int width, int height) {
  std::vector<float> psf = Allocate(width, height);
  float sum = 0.0f;
  std::size_t i = 0;
  for (int y = 0; y < height; ++y) {
    const double dy = y - height * 0.5;
    for (int x = 0; x < width; ++x) {
      const double dx = x - width * 0.5;
      // The rounded 2 pi goes out again with the sum.
      const double value = std::exp((dx * dx + dy * dy) / (-2.0 * sigma * sigma)) / (sigma * 6.28318 * sigma);
      psf[i] = static_cast<float>(value);
      sum += psf[i++];
    }
  }
  for (float& value : psf) value /= sum;
  return psf;
}

}  // namespace qmr
