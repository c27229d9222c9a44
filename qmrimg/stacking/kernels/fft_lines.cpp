#include "qmrimg/stacking/kernels/fft_lines.h"

#include <algorithm>

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

using Quad = float __attribute__((vector_size(16), aligned(4), may_alias));

struct Root {
  float re, im;
};

// The factors of one set of butterflies, taken out of memory so that nothing in the loop can alias them.
template <bool kTwiddle, int kRadix>
struct Roots {
  explicit Roots(const float* w) {
    if constexpr (kTwiddle) {
      for (int j = 0; j < kRadix - 1; ++j) root[j] = {w[2 * j], w[2 * j + 1]};
    }
  }
  Root operator[](int j) const { return root[j - 1]; }
  Root root[kRadix - 1];
};

// One output of a butterfly, turned by its factor. The stores stand in the loops themselves: inlined ones would lose
// the promise of `omp simd` with some compilers.
template <bool kTwiddle>
inline float TurnedRe(float re, float im, Root w) {
  return kTwiddle ? re * w.re - im * w.im : re;
}
template <bool kTwiddle>
inline float TurnedIm(float re, float im, Root w) {
  return kTwiddle ? re * w.im + im * w.re : im;
}

// Radix passes of the self-sorting kind: element q + stride (p + j blocks) of `in` goes to q + stride (radix p + j) of
// `out`. A pass of one block has no factors but 1 and leaves them out.
template <bool kTwiddle>
void Radix2(const float* in, float* out, int blocks, int stride, const float* roots) {
  const std::ptrdiff_t di = static_cast<std::ptrdiff_t>(stride) * blocks * kElement;
  const std::ptrdiff_t dk = static_cast<std::ptrdiff_t>(stride) * kElement;
  for (int p = 0; p < blocks; ++p) {
    const Roots<kTwiddle, 2> w(roots + 2 * p);
    for (int q = 0; q < stride; ++q) {
      const float* a = in + static_cast<std::ptrdiff_t>(q + stride * p) * kElement;
      float* b = out + static_cast<std::ptrdiff_t>(q + stride * 2 * p) * kElement;
#pragma omp simd
      for (int t = 0; t < kLanes; ++t) {
        const float* x = a + t;
        float* y = b + t;
        const float ar = x[0], ai = x[kLanes], br = x[di], bi = x[di + kLanes];
        y[0] = ar + br;
        y[kLanes] = ai + bi;
        const float y1r = ar - br, y1i = ai - bi;
        y[dk] = TurnedRe<kTwiddle>(y1r, y1i, w[1]);
        y[dk + kLanes] = TurnedIm<kTwiddle>(y1r, y1i, w[1]);
      }
    }
  }
}

template <bool kTwiddle>
void Radix4(const float* in, float* out, int blocks, int stride, const float* roots) {
  const std::ptrdiff_t di = static_cast<std::ptrdiff_t>(stride) * blocks * kElement;
  const std::ptrdiff_t dk = static_cast<std::ptrdiff_t>(stride) * kElement;
  for (int p = 0; p < blocks; ++p) {
    const Roots<kTwiddle, 4> w(roots + 6 * p);
    for (int q = 0; q < stride; ++q) {
      const float* a = in + static_cast<std::ptrdiff_t>(q + stride * p) * kElement;
      float* b = out + static_cast<std::ptrdiff_t>(q + stride * 4 * p) * kElement;
#pragma omp simd
      for (int t = 0; t < kLanes; ++t) {
        const float* x = a + t;
        float* y = b + t;
        const float s0r = x[0] + x[2 * di], s0i = x[kLanes] + x[2 * di + kLanes];
        const float d0r = x[0] - x[2 * di], d0i = x[kLanes] - x[2 * di + kLanes];
        const float s1r = x[di] + x[3 * di], s1i = x[di + kLanes] + x[3 * di + kLanes];
        const float d1r = x[di] - x[3 * di], d1i = x[di + kLanes] - x[3 * di + kLanes];
        y[0] = s0r + s1r;
        y[kLanes] = s0i + s1i;
        const float y1r = d0r - d1i, y1i = d0i + d1r;
        y[dk] = TurnedRe<kTwiddle>(y1r, y1i, w[1]);
        y[dk + kLanes] = TurnedIm<kTwiddle>(y1r, y1i, w[1]);
        const float y2r = s0r - s1r, y2i = s0i - s1i;
        y[2 * dk] = TurnedRe<kTwiddle>(y2r, y2i, w[2]);
        y[2 * dk + kLanes] = TurnedIm<kTwiddle>(y2r, y2i, w[2]);
        const float y3r = d0r + d1i, y3i = d0i - d1r;
        y[3 * dk] = TurnedRe<kTwiddle>(y3r, y3i, w[3]);
        y[3 * dk + kLanes] = TurnedIm<kTwiddle>(y3r, y3i, w[3]);
      }
    }
  }
}

template <bool kTwiddle>
void Radix8(const float* in, float* out, int blocks, int stride, const float* roots) {
  const float h = 0.707106781186547524f;
  const std::ptrdiff_t di = static_cast<std::ptrdiff_t>(stride) * blocks * kElement;
  const std::ptrdiff_t dk = static_cast<std::ptrdiff_t>(stride) * kElement;
  for (int p = 0; p < blocks; ++p) {
    const Roots<kTwiddle, 8> w(roots + 14 * p);
    for (int q = 0; q < stride; ++q) {
      const float* a = in + static_cast<std::ptrdiff_t>(q + stride * p) * kElement;
      float* b = out + static_cast<std::ptrdiff_t>(q + stride * 8 * p) * kElement;
#pragma omp simd
      for (int t = 0; t < kLanes; ++t) {
        float* y = b + t;
        // The even inputs give e0 .. e3, the odd ones g0 .. g3, each by a transform of four.
        const float x0r = a[t], x0i = a[t + kLanes], x4r = a[t + 4 * di], x4i = a[t + 4 * di + kLanes];
        const float x2r = a[t + 2 * di], x2i = a[t + 2 * di + kLanes], x6r = a[t + 6 * di],
                    x6i = a[t + 6 * di + kLanes];
        const float s0r = x0r + x4r, s0i = x0i + x4i, d0r = x0r - x4r, d0i = x0i - x4i;
        const float s2r = x2r + x6r, s2i = x2i + x6i, d2r = x2r - x6r, d2i = x2i - x6i;
        const float e0r = s0r + s2r, e0i = s0i + s2i, e2r = s0r - s2r, e2i = s0i - s2i;
        const float e1r = d0r - d2i, e1i = d0i + d2r, e3r = d0r + d2i, e3i = d0i - d2r;

        const float x1r = a[t + di], x1i = a[t + di + kLanes], x5r = a[t + 5 * di], x5i = a[t + 5 * di + kLanes];
        const float x3r = a[t + 3 * di], x3i = a[t + 3 * di + kLanes], x7r = a[t + 7 * di],
                    x7i = a[t + 7 * di + kLanes];
        const float s1r = x1r + x5r, s1i = x1i + x5i, d1r = x1r - x5r, d1i = x1i - x5i;
        const float s3r = x3r + x7r, s3i = x3i + x7i, d3r = x3r - x7r, d3i = x3i - x7i;
        const float g0r = s1r + s3r, g0i = s1i + s3i, g2r = s1r - s3r, g2i = s1i - s3i;
        const float g1r = d1r - d3i, g1i = d1i + d3r, g3r = d1r + d3i, g3i = d1i - d3r;

        // f1 = exp(i pi / 4) g1; exp(3 i pi / 4) g3 = -f3r + i f3i.
        const float f1r = (g1r - g1i) * h, f1i = (g1r + g1i) * h;
        const float f3r = (g3r + g3i) * h, f3i = (g3r - g3i) * h;

        y[0] = e0r + g0r;
        y[kLanes] = e0i + g0i;
        const float y1r = e1r + f1r, y1i = e1i + f1i;
        y[dk] = TurnedRe<kTwiddle>(y1r, y1i, w[1]);
        y[dk + kLanes] = TurnedIm<kTwiddle>(y1r, y1i, w[1]);
        const float y2r = e2r - g2i, y2i = e2i + g2r;
        y[2 * dk] = TurnedRe<kTwiddle>(y2r, y2i, w[2]);
        y[2 * dk + kLanes] = TurnedIm<kTwiddle>(y2r, y2i, w[2]);
        const float y3r = e3r - f3r, y3i = e3i + f3i;
        y[3 * dk] = TurnedRe<kTwiddle>(y3r, y3i, w[3]);
        y[3 * dk + kLanes] = TurnedIm<kTwiddle>(y3r, y3i, w[3]);
        const float y4r = e0r - g0r, y4i = e0i - g0i;
        y[4 * dk] = TurnedRe<kTwiddle>(y4r, y4i, w[4]);
        y[4 * dk + kLanes] = TurnedIm<kTwiddle>(y4r, y4i, w[4]);
        const float y5r = e1r - f1r, y5i = e1i - f1i;
        y[5 * dk] = TurnedRe<kTwiddle>(y5r, y5i, w[5]);
        y[5 * dk + kLanes] = TurnedIm<kTwiddle>(y5r, y5i, w[5]);
        const float y6r = e2r + g2i, y6i = e2i - g2r;
        y[6 * dk] = TurnedRe<kTwiddle>(y6r, y6i, w[6]);
        y[6 * dk + kLanes] = TurnedIm<kTwiddle>(y6r, y6i, w[6]);
        const float y7r = e3r + f3r, y7i = e3i - f3i;
        y[7 * dk] = TurnedRe<kTwiddle>(y7r, y7i, w[7]);
        y[7 * dk + kLanes] = TurnedIm<kTwiddle>(y7r, y7i, w[7]);
      }
    }
  }
}

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

// 16 x 16 floats, rows an element apart on both sides.
void Transpose(const float* from, float* to) {
  for (int i = 0; i < kLanes; i += 4) {
    for (int j = 0; j < kLanes; j += 4) {
      const float* f = from + i * kElement + j;
      const Quad a = *reinterpret_cast<const Quad*>(f);
      const Quad b = *reinterpret_cast<const Quad*>(f + kElement);
      const Quad c = *reinterpret_cast<const Quad*>(f + 2 * kElement);
      const Quad d = *reinterpret_cast<const Quad*>(f + 3 * kElement);
      const Quad ab0 = __builtin_shufflevector(a, b, 0, 4, 1, 5), ab1 = __builtin_shufflevector(a, b, 2, 6, 3, 7);
      const Quad cd0 = __builtin_shufflevector(c, d, 0, 4, 1, 5), cd1 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
      float* t = to + j * kElement + i;
      *reinterpret_cast<Quad*>(t) = __builtin_shufflevector(ab0, cd0, 0, 1, 4, 5);
      *reinterpret_cast<Quad*>(t + kElement) = __builtin_shufflevector(ab0, cd0, 2, 3, 6, 7);
      *reinterpret_cast<Quad*>(t + 2 * kElement) = __builtin_shufflevector(ab1, cd1, 0, 1, 4, 5);
      *reinterpret_cast<Quad*>(t + 3 * kElement) = __builtin_shufflevector(ab1, cd1, 2, 3, 6, 7);
    }
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

std::vector<FftPlan::Pass> FftPlan::MakePasses(int n) {
  std::vector<Pass> passes;
  int stride = 1;
  while (n > 1) {
    // Eights as far as they go; 16 is two fours.
    const int radix = n == 2 ? 2 : (n == 4 || n == 16) ? 4 : 8;
    const int blocks = n / radix;
    passes.push_back({radix, blocks, stride, roots_.size()});
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
float* FftPlan::Short(const std::vector<Pass>& passes, float* a, float* b) const {
  for (const Pass& pass : passes) {
    const float* w = roots_.data() + pass.roots;
    const bool turn = pass.blocks > 1;
    if (pass.radix == 8) {
      (turn ? Radix8<true> : Radix8<false>)(a, b, pass.blocks, pass.stride, w);
    } else if (pass.radix == 4) {
      (turn ? Radix4<true> : Radix4<false>)(a, b, pass.blocks, pass.stride, w);
    } else {
      (turn ? Radix2<true> : Radix2<false>)(a, b, pass.blocks, pass.stride, w);
    }
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
      Transpose(x, y);
      Transpose(x + kLanes, y + kLanes);
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
