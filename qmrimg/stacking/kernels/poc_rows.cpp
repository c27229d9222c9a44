#include "qmrimg/stacking/kernels/poc_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace qmr {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kAlpha = 0.5;  // the share of the frequencies that the correlation keeps

// conj(a) b of some elements, the two parts apart. They must not be computed and stored side by side: for such loops
// GCC 12 fuses the multiplications and additions on processors that can, whatever -ffp-contract says.
constexpr int kBlock = 64;

struct Products {
  float re[kBlock];
  float im[kBlock];
};

void Multiply(const float* a, const float* b, int count, Products& products) {
  float* const re = products.re;
  float* const im = products.im;
#pragma omp simd
  for (int i = 0; i < count; ++i) re[i] = a[2 * i] * b[2 * i] + a[2 * i + 1] * b[2 * i + 1];
#pragma omp simd
  for (int i = 0; i < count; ++i) im[i] = a[2 * i] * b[2 * i + 1] - a[2 * i + 1] * b[2 * i];
}

void CrossSpectrum(float* a, const float* b, int from, int to) {
  Products products;
  const float* const re = products.re;
  const float* const im = products.im;
  for (int x = from; x < to; x += kBlock) {
    const int count = std::min(kBlock, to - x);
    float* const out = a + 2 * static_cast<std::ptrdiff_t>(x);
    Multiply(out, b + 2 * static_cast<std::ptrdiff_t>(x), count, products);
#pragma omp simd
    for (int i = 0; i < count; ++i) {
      const double dr = re[i], di = im[i];
      const float magnitude = static_cast<float>(std::sqrt(dr * dr + di * di));
      const float divisor = magnitude > 0.0f ? magnitude : 1.0f;
      out[2 * i] = re[i] / divisor;
      out[2 * i + 1] = im[i] / divisor;
    }
  }
}

// Reflected about the end samples, which are not repeated.
int Reflect(long k, int count) {
  if (count < 2) return 0;
  const long period = 2 * (static_cast<long>(count) - 1);
  k %= period;
  if (k < 0) k += period;
  return static_cast<int>(k < count ? k : period - k);
}

}  // namespace

void CrossSpectrumRow(float* a, const float* b, int width, int zeroFrom, int zeroTo) {
  zeroFrom = std::clamp(zeroFrom, 0, width);
  zeroTo = std::clamp(zeroTo, zeroFrom, width);
  CrossSpectrum(a, b, 0, zeroFrom);
  std::fill(a + 2 * static_cast<std::ptrdiff_t>(zeroFrom), a + 2 * static_cast<std::ptrdiff_t>(zeroTo), 0.0f);
  CrossSpectrum(a, b, zeroTo, width);
}

void DeconvolveRow(float* a, const float* o, int width, float eps) {
  Products products;
  const float* const re = products.re;
  const float* const im = products.im;
  for (int x = 0; x < width; x += kBlock) {
    const int count = std::min(kBlock, width - x);
    float* const out = a + 2 * static_cast<std::ptrdiff_t>(x);
    const float* const blur = o + 2 * static_cast<std::ptrdiff_t>(x);
    Multiply(out, blur, count, products);
#pragma omp simd
    for (int i = 0; i < count; ++i) {
      const float divisor = blur[2 * i] * blur[2 * i] + blur[2 * i + 1] * blur[2 * i + 1] + eps;
      out[2 * i] = re[i] / divisor;
      out[2 * i + 1] = -im[i] / divisor;
    }
  }
}

int PeakLine::Clamp(long k) const {
  return static_cast<int>(std::clamp(k, 0L, count - 1L));
}
double PeakLine::Value(long k) const {
  return first[step * Clamp(k)];
}
double PeakLine::Distance(long k) const {
  return Clamp(k) - count / 2;
}

double PeakU(const PeakLine& line, double alpha, long n, int i) {
  return line.Value(n - i) + line.Value(n + i) - 2.0 * std::cos(alpha * kPi * i) * line.Value(n);
}

double PeakV(const PeakLine& line, double alpha, long n, int i) {
  // This sign makes the quotient the position of the peak itself.
  return line.Distance(n - i) * line.Value(n - i) + line.Distance(n + i) * line.Value(n + i) -
         2.0 * std::cos(alpha * kPi * i) * line.Distance(n) * line.Value(n);
}

double PeakPosition(const PeakLine& line, int at) {
  const int left = Reflect(at - 1L, line.count), right = Reflect(at + 1L, line.count);
  const int neighbour = line.Value(left) > line.Value(right) ? left : right;
  double numerator = 0.0, denominator = 0.0;
  for (const int n : {at, neighbour}) {
    for (int i = 1; i <= 3; ++i) {
      const double u = PeakU(line, kAlpha, n, i);
      numerator += PeakV(line, kAlpha, n, i) * u;
      denominator += u * u;
    }
  }
  return denominator == 0.0 ? 0.0 : numerator / denominator;
}

}  // namespace qmr
