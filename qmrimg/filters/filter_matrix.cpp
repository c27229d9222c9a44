#include "qmrimg/filters/filter_matrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <new>

#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr double kOwnRadius = -1.0;
constexpr double kPi = 3.141592653589793;
// The largest radius whose count of elements is still an int.
constexpr int kMaxRadius = 23169;

}  // namespace

CFilterMatrix::CFilterMatrix() = default;
CFilterMatrix::CFilterMatrix(int radius, const float* values, int n) {
  SetValues(radius, values, n);
}
CFilterMatrix::CFilterMatrix(int radius, const double* values, int n) {
  SetValues(radius, values, n);
}
CFilterMatrix::~CFilterMatrix() = default;

int CFilterMatrix::Alloc(int newRadius, int required, int clear) {
  (void)clear;
  newRadius = std::max(newRadius, 0);
  if (newRadius > kMaxRadius) AfxThrowMemoryException();
  const int newSize = 2 * newRadius + 1;
  try {
    values.assign(static_cast<std::size_t>(newSize) * static_cast<std::size_t>(newSize), 0.0f);
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
  radius = newRadius;
  size = newSize;
  count = newSize * newSize;
  return required != 0 && required > count ? 0 : 1;
}

int CFilterMatrix::SetValues(int newRadius, const float* from, int n) {
  if (!Alloc(newRadius, n, 0) || !from) return 0;
  std::copy_n(from, n == 0 ? count : std::max(n, 0), values.begin());
  return 1;
}

int CFilterMatrix::SetValues(int newRadius, const double* from, int n) {
  if (!Alloc(newRadius, n, 0) || !from) return 0;
  std::transform(from, from + (n == 0 ? count : std::max(n, 0)), values.begin(),
                 [](double v) { return static_cast<float>(v); });
  return 1;
}

int CFilterMatrix::SetGaussian(int newRadius, double sigma) {
  if (!Alloc(newRadius, 0, 0)) return 0;
  if (sigma == kOwnRadius) sigma = radius;
  if (sigma == 0.0) {
    *At(0, 0) = 1.0f;
    return 1;
  }
  const double divisor = sigma * -2.0 * sigma;
  for (int y = 0; y <= radius; ++y) {
    for (int x = 0; x <= radius; ++x) {
      const double distance = static_cast<double>(x) * x + static_cast<double>(y) * y;
      const auto v = static_cast<float>(std::exp(distance / divisor));
      *At(x, y) = *At(-x, y) = *At(x, -y) = *At(-x, -y) = v;
    }
  }
  Normalize();
  return 1;
}

int CFilterMatrix::SetGaussianSigma(double sigma) {
  return SetGaussian(qmr::TruncateToInt(std::max(1.0, sigma * 2.8 + 1.0)), sigma);
}

int CFilterMatrix::SetDisc(int newRadius, double discRadius) {
  if (!Alloc(newRadius, 0, 1)) return 0;
  if (discRadius == kOwnRadius) discRadius = radius;
  int ones = 0;
  for (int y = -radius; y <= radius; ++y) {
    for (int x = -radius; x <= radius; ++x) {
      if (!(static_cast<double>(x) * x + static_cast<double>(y) * y <= discRadius * discRadius)) continue;
      *At(x, y) = 1.0f;
      ++ones;
    }
  }
  return ones;
}

int CFilterMatrix::SetWeightedDisc(int newRadius, double discRadius, double weight) {
  SetDisc(newRadius, discRadius);
  for (float& v : values)
    if (v != 0.0f) v = static_cast<float>(weight);
  *At(0, 0) = 1.0f;
  Normalize();
  return 1;
}

int CFilterMatrix::SetLaplacian(int newRadius, double limit) {
  if (!Alloc(newRadius, 0, 1)) return 0;
  if (limit == kOwnRadius) limit = radius;
  int cells = 0;
  for (int y = -radius; y <= radius; ++y) {
    for (int x = -radius; x <= radius; ++x) {
      const double distance = static_cast<double>(x) * x + static_cast<double>(y) * y;
      if (!(distance > 0.0 && distance <= limit)) continue;
      *At(x, y) = -1.0f;
      ++cells;
    }
  }
  *At(0, 0) = static_cast<float>(cells);
  return 1;
}

int CFilterMatrix::SetSharpen(double limit, double weight) {
  if (!Alloc(std::max(1, qmr::TruncateToInt(limit)), 0, 1)) return 0;
  if (limit == kOwnRadius) limit = radius;
  int cells = 0;
  for (int y = -radius; y <= radius; ++y) {
    for (int x = -radius; x <= radius; ++x) {
      const double distance = static_cast<double>(x) * x + static_cast<double>(y) * y;
      if (!(distance > 0.0 && distance <= limit)) continue;
      *At(x, y) = static_cast<float>(-weight);
      ++cells;
    }
  }
  *At(0, 0) = static_cast<float>(cells * weight + 1.0);
  Normalize();
  return 1;
}

int CFilterMatrix::SetLine(int newRadius, double length, double angle, double weight) {
  if (!Alloc(newRadius, 0, 1)) return 0;
  if (length == kOwnRadius) length = radius;
  const double theta = (90.0 - angle) * kPi / 180.0;
  const double cosine = std::cos(theta);
  const double sine = std::sin(theta);

  // The line before its rotation lies in the centre row; every other row is 0.
  std::vector<float> line(static_cast<std::size_t>(size), -1.0f);
  // Only the leftmost cell takes the fraction of the length, on purpose: the line is longer on its right.
  line.front() = radius >= length ? -1.0f : static_cast<float>(length - std::floor(length));
  line[static_cast<std::size_t>(radius)] = 0.0f;
  float sum = 0.0f;
  for (const float v : line) sum += v;
  line[static_cast<std::size_t>(radius)] = 1.0f - sum;
  const auto lineAt = [&](double x, double y) {
    if (std::clamp(qmr::TruncateToInt(y), -radius, radius) != 0) return 0.0f;
    return line[static_cast<std::size_t>(std::clamp(qmr::TruncateToInt(x), -radius, radius) + radius)];
  };

  float rest = 0.0f;
  for (int a = -radius; a <= radius; ++a) {
    for (int b = -radius; b <= radius; ++b) {
      if (a == 0 && b == 0) continue;
      const double p = a * cosine + b * sine;
      const double q = b * cosine - a * sine;
      const double left = std::floor(q), right = std::ceil(q);
      const double top = std::floor(p), bottom = std::ceil(p);
      const double u = q - left;
      const double v = p - top;
      const auto value =
          static_cast<float>((1.0 - v) * (1.0 - u) * lineAt(left, top) + (1.0 - u) * v * lineAt(left, bottom) +
                             (1.0 - v) * u * lineAt(right, top) + u * v * lineAt(right, bottom));
      *At(b, a) = value;
      rest += value;
    }
  }
  *At(0, 0) = static_cast<float>((1.0f - rest) * weight);
  Normalize();
  return 1;
}

int CFilterMatrix::SetCfaCross(int colour, int bayer) {
  if (colour < 0 || colour > 2) return 0;
  const bool green = colour == 1;
  // Bayer greens are neighbours diagonally, honeycomb greens at two steps along rows and columns; the other colours
  // the opposite way, at two steps.
  const bool diagonal = green == (bayer != 0);
  const int step = green && bayer ? 1 : 2;
  if (!Alloc(step, 0, 1)) return 0;
  if (diagonal)
    *At(-step, -step) = *At(step, -step) = *At(-step, step) = *At(step, step) = 1.0f;
  else
    *At(0, -step) = *At(-step, 0) = *At(step, 0) = *At(0, step) = 1.0f;
  return 4;
}

void CFilterMatrix::Normalize() {
  float sum = 0.0f;
  for (const float v : values) sum += v;
  if (sum == 0.0f) return;
  for (float& v : values) v /= sum;
}

float* CFilterMatrix::At(int x, int y) {
  const std::int64_t index = (static_cast<std::int64_t>(y) + radius) * size + static_cast<std::int64_t>(radius) + x;
  return index >= 0 && index < count ? &values[static_cast<std::size_t>(index)] : nullptr;
}

float CFilterMatrix::Get(int x, int y) const {
  const std::int64_t index = (static_cast<std::int64_t>(y) + radius) * size + static_cast<std::int64_t>(radius) + x;
  return index >= 0 && index < count ? values[static_cast<std::size_t>(index)] : 0.0f;
}

float CFilterMatrix::Get(int index) const {
  return index >= 0 && index < count ? values[static_cast<std::size_t>(index)] : 0.0f;
}
