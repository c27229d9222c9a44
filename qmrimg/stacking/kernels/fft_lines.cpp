#include "qmrimg/stacking/kernels/fft_lines.h"

#include <algorithm>

#include "qmrimg/stacking/kernels/fft_tile.h"
#include "qmrimg/stacking/kernels/fft_trig.h"

// A line of 256 elements and more is a matrix of outer x inner elements: element inner * i + j stands in row i, column
// j. The first step transforms the columns of the matrix, the factors w^(j k) follow, the second step transforms its
// rows; each of these short transforms fits the first-level cache. Sixteen short transforms always run side by side:
// those of sixteen lines, or of sixteen columns (then rows) of one line. Both ways do the same arithmetic.
namespace qmr {
namespace {

constexpr int kLanes = FftPlan::kLanes;
constexpr int kElement = 2 * kLanes;  // floats of one element of all lanes: the reals, then the imaginaries
constexpr int kLongFrom = 256;        // from here on both factors are multiples of the lane count

// `count` neighbours of an interleaved line, split into reals and imaginaries; idle lanes are zero. `swap` exchanges
// the two parts: to transform exchanged parts and exchange them again turns the sign of the exponent.
void Load(const float* from, int count, bool swap, float* to) {
  float* re = swap ? to + kLanes : to;
  float* im = swap ? to : to + kLanes;
  if (count == kLanes) {
#pragma omp simd
    for (int t = 0; t < kLanes; ++t) {
      re[t] = from[2 * t];
      im[t] = from[2 * t + 1];
    }
    return;
  }
  std::fill_n(to, kElement, 0.0f);
  for (int t = 0; t < count; ++t) {
    re[t] = from[2 * t];
    im[t] = from[2 * t + 1];
  }
}

void Store(const float* from, int count, bool swap, float scale, float* to) {
  const float* re = swap ? from + kLanes : from;
  const float* im = swap ? from : from + kLanes;
  if (count == kLanes) {
#pragma omp simd
    for (int t = 0; t < kLanes; ++t) {
      to[2 * t] = re[t] * scale;
      to[2 * t + 1] = im[t] * scale;
    }
    return;
  }
  for (int t = 0; t < count; ++t) {
    to[2 * t] = re[t] * scale;
    to[2 * t + 1] = im[t] * scale;
  }
}

}  // namespace

FftPlan::FftPlan(int length) : length_(length), outer_(length), inner_(1) {
  if (length >= kLongFrom) {
    int bits = 0;
    while ((length >> bits) > 1) ++bits;
    inner_ = 1 << (bits / 2);
    outer_ = length / inner_;
    const std::size_t n = static_cast<std::size_t>(length);
    crossRe_.resize(n);
    crossIm_.resize(n);
    for (int k = 0; k < outer_; ++k) {
      for (int j = 0; j < inner_; ++j) {
        double c, s;
        UnitRoot(static_cast<long>(j) * k, length, &c, &s);
        crossRe_[static_cast<std::size_t>(k) * inner_ + j] = static_cast<float>(c);
        crossIm_[static_cast<std::size_t>(k) * inner_ + j] = static_cast<float>(s);
      }
    }
  }
  outerPasses_ = MakePasses(outer_);
  innerPasses_ = MakePasses(inner_);
  // Two buffers of a short transform, and the matrix of a long line with one element of padding a row: rows at a power
  // of two would all fall into the same cache sets.
  workFloats_ = 2 * static_cast<std::size_t>(outer_) * kElement;
  if (inner_ > 1) workFloats_ += static_cast<std::size_t>(outer_) * (inner_ + 1) * kElement;
}

std::vector<FftPass> FftPlan::MakePasses(int n) {
  std::vector<FftPass> passes;
  int stride = 1;
  while (n > 1) {
    // Eights as far as they go; 16 is two fours.
    const int radix = n == 2 ? 2 : (n == 4 || n == 16) ? 4 : 8;
    const int blocks = n / radix;
    passes.push_back({radix, blocks, stride, blocks > 1, roots_.size(), 0});
    if (blocks > 1) {
      for (int p = 0; p < blocks; ++p) {
        for (int j = 1; j < radix; ++j) {
          double c, s;
          UnitRoot(static_cast<long>(p) * j, n, &c, &s);
          roots_.push_back(static_cast<float>(c));
          roots_.push_back(static_cast<float>(s));
        }
      }
    }
    stride *= radix;
    n = blocks;
  }
  return passes;
}

// Transforms sixteen short lines from `a` back and forth between the two buffers and returns where the result is.
float* FftPlan::Short(const std::vector<FftPass>& passes, float* a, float* b) const {
  for (const FftPass& pass : passes) {
    RunFftPass(pass, roots_.data() + pass.roots, nullptr, a, kElement, b, kElement, false);
    std::swap(a, b);
  }
  return a;
}

void FftPlan::Row(float* line, FftSign sign, float scale, float* work) const {
  if (inner_ > 1) {
    LongRow(line, sign == FftSign::kMinus, scale, work);
  } else {
    Columns(line, 1, 1, sign, scale, work);
  }
}

void FftPlan::LongRow(float* line, bool swap, float scale, float* work) const {
  const std::ptrdiff_t outer = outer_, inner = inner_;
  float* a = work;
  float* b = a + outer * kElement;
  float* matrix = b + outer * kElement;
  const std::ptrdiff_t band = (inner + 1) * kElement;  // sixteen rows of the matrix
  for (std::ptrdiff_t j = 0; j < inner; j += kLanes) {
    for (std::ptrdiff_t i = 0; i < outer; ++i) Load(line + 2 * (i * inner + j), kLanes, swap, a + i * kElement);
    float* r = Short(outerPasses_, a, b);
    for (std::ptrdiff_t k = 0; k < outer; ++k) {
      float* x = r + k * kElement;
      const float* wr = crossRe_.data() + k * inner + j;
      const float* wi = crossIm_.data() + k * inner + j;
#pragma omp simd
      for (int t = 0; t < kLanes; ++t) {
        const float re = x[t], im = x[t + kLanes];
        x[t] = re * wr[t] - im * wi[t];
        x[t + kLanes] = re * wi[t] + im * wr[t];
      }
    }
    for (std::ptrdiff_t k = 0; k < outer; k += kLanes) {
      const float* x = r + k * kElement;
      float* y = matrix + k / kLanes * band + j * kElement;
      Transpose(x, kElement, kLanes, kLanes, y, kElement);
      Transpose(x + kLanes, kElement, kLanes, kLanes, y + kLanes, kElement);
    }
  }
  for (std::ptrdiff_t k = 0; k < outer; k += kLanes) {
    const float* r = Short(innerPasses_, matrix + k / kLanes * band, a);
    for (std::ptrdiff_t m = 0; m < inner; ++m) {
      Store(r + m * kElement, kLanes, swap, scale, line + 2 * (m * outer + k));
    }
  }
}

void FftPlan::Columns(float* first, std::ptrdiff_t stride, int count, FftSign sign, float scale, float* work) const {
  const bool swap = sign == FftSign::kMinus;
  const std::ptrdiff_t outer = outer_, inner = inner_;
  float* a = work;
  float* b = a + outer * kElement;
  if (inner == 1) {
    for (std::ptrdiff_t i = 0; i < outer; ++i) Load(first + 2 * stride * i, count, swap, a + i * kElement);
    const float* r = Short(outerPasses_, a, b);
    for (std::ptrdiff_t k = 0; k < outer; ++k) Store(r + k * kElement, count, swap, scale, first + 2 * stride * k);
    return;
  }
  float* matrix = b + outer * kElement;
  const std::ptrdiff_t row = (inner + 1) * kElement;
  for (std::ptrdiff_t j = 0; j < inner; ++j) {
    for (std::ptrdiff_t i = 0; i < outer; ++i) {
      Load(first + 2 * stride * (i * inner + j), count, swap, a + i * kElement);
    }
    const float* r = Short(outerPasses_, a, b);
    for (std::ptrdiff_t k = 0; k < outer; ++k) {
      const float* x = r + k * kElement;
      float* y = matrix + k * row + j * kElement;
      const float wr = crossRe_[static_cast<std::size_t>(k * inner + j)];
      const float wi = crossIm_[static_cast<std::size_t>(k * inner + j)];
#pragma omp simd
      for (int t = 0; t < kLanes; ++t) {
        const float re = x[t], im = x[t + kLanes];
        y[t] = re * wr - im * wi;
        y[t + kLanes] = re * wi + im * wr;
      }
    }
  }
  for (std::ptrdiff_t k = 0; k < outer; ++k) {
    const float* r = Short(innerPasses_, matrix + k * row, a);
    for (std::ptrdiff_t m = 0; m < inner; ++m) {
      Store(r + m * kElement, count, swap, scale, first + 2 * stride * (m * outer + k));
    }
  }
}

}  // namespace qmr
