#include "qmrimg/stacking/kernels/fft_butterflies.h"

namespace qmr {
namespace {

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

// The steps of a pass, in floats.
struct Steps {
  Steps(const FftPass& pass, std::ptrdiff_t inPitch, std::ptrdiff_t outPitch)
      : blocks(pass.blocks),
        stride(pass.stride),
        radix(pass.radix),
        pitchIn(inPitch),
        pitchOut(outPitch),
        di(inPitch * pass.stride * pass.blocks),
        dk(outPitch * pass.stride) {}
  // The first input and output of butterfly q of block p.
  std::ptrdiff_t In(int p, int q) const { return pitchIn * (q + static_cast<std::ptrdiff_t>(stride) * p); }
  std::ptrdiff_t Out(int p, int q) const { return pitchOut * (q + static_cast<std::ptrdiff_t>(stride) * radix * p); }

  int blocks;
  int stride;
  int radix;
  std::ptrdiff_t pitchIn;
  std::ptrdiff_t pitchOut;
  std::ptrdiff_t di;  // from one input of a butterfly to the next
  std::ptrdiff_t dk;  // from one output to the next
};

template <bool kTwiddle, int kIm>
void Radix2(const FftPass& pass, const float* roots, const float* in, std::ptrdiff_t inPitch, float* out,
            std::ptrdiff_t outPitch) {
  const Steps step(pass, inPitch, outPitch);
  const std::ptrdiff_t di = step.di, dk = step.dk;
  for (int p = 0; p < step.blocks; ++p) {
    const Roots<kTwiddle, 2> w(roots + 2 * p);
    for (int q = 0; q < step.stride; ++q) {
      const float* a = in + step.In(p, q);
      float* b = out + step.Out(p, q);
#pragma omp simd
      for (int t = 0; t < kFftLanes; ++t) {
        const float* x = a + t;
        float* y = b + t;
        const float ar = x[0], ai = x[kIm], br = x[di], bi = x[di + kIm];
        y[0] = ar + br;
        y[kIm] = ai + bi;
        const float y1r = ar - br, y1i = ai - bi;
        y[dk] = TurnedRe<kTwiddle>(y1r, y1i, w[1]);
        y[dk + kIm] = TurnedIm<kTwiddle>(y1r, y1i, w[1]);
      }
    }
  }
}

template <bool kTwiddle, int kIm>
void Radix3(const FftPass& pass, const float* roots, const float* in, std::ptrdiff_t inPitch, float* out,
            std::ptrdiff_t outPitch) {
  const float h = 0.866025403784438647f;  // sin of a third of a turn
  const Steps step(pass, inPitch, outPitch);
  const std::ptrdiff_t di = step.di, dk = step.dk;
  for (int p = 0; p < step.blocks; ++p) {
    const Roots<kTwiddle, 3> w(roots + 4 * p);
    for (int q = 0; q < step.stride; ++q) {
      const float* a = in + step.In(p, q);
      float* b = out + step.Out(p, q);
#pragma omp simd
      for (int t = 0; t < kFftLanes; ++t) {
        const float* x = a + t;
        float* y = b + t;
        const float x0r = x[0], x0i = x[kIm], x1r = x[di], x1i = x[di + kIm], x2r = x[2 * di], x2i = x[2 * di + kIm];
        const float sr = x1r + x2r, si = x1i + x2i;
        const float er = (x1r - x2r) * h, ei = (x1i - x2i) * h;
        const float ar = x0r - 0.5f * sr, ai = x0i - 0.5f * si;
        y[0] = x0r + sr;
        y[kIm] = x0i + si;
        const float y1r = ar - ei, y1i = ai + er;
        y[dk] = TurnedRe<kTwiddle>(y1r, y1i, w[1]);
        y[dk + kIm] = TurnedIm<kTwiddle>(y1r, y1i, w[1]);
        const float y2r = ar + ei, y2i = ai - er;
        y[2 * dk] = TurnedRe<kTwiddle>(y2r, y2i, w[2]);
        y[2 * dk + kIm] = TurnedIm<kTwiddle>(y2r, y2i, w[2]);
      }
    }
  }
}

template <bool kTwiddle, int kIm>
void Radix4(const FftPass& pass, const float* roots, const float* in, std::ptrdiff_t inPitch, float* out,
            std::ptrdiff_t outPitch) {
  const Steps step(pass, inPitch, outPitch);
  const std::ptrdiff_t di = step.di, dk = step.dk;
  for (int p = 0; p < step.blocks; ++p) {
    const Roots<kTwiddle, 4> w(roots + 6 * p);
    for (int q = 0; q < step.stride; ++q) {
      const float* a = in + step.In(p, q);
      float* b = out + step.Out(p, q);
#pragma omp simd
      for (int t = 0; t < kFftLanes; ++t) {
        const float* x = a + t;
        float* y = b + t;
        const float s0r = x[0] + x[2 * di], s0i = x[kIm] + x[2 * di + kIm];
        const float d0r = x[0] - x[2 * di], d0i = x[kIm] - x[2 * di + kIm];
        const float s1r = x[di] + x[3 * di], s1i = x[di + kIm] + x[3 * di + kIm];
        const float d1r = x[di] - x[3 * di], d1i = x[di + kIm] - x[3 * di + kIm];
        y[0] = s0r + s1r;
        y[kIm] = s0i + s1i;
        const float y1r = d0r - d1i, y1i = d0i + d1r;
        y[dk] = TurnedRe<kTwiddle>(y1r, y1i, w[1]);
        y[dk + kIm] = TurnedIm<kTwiddle>(y1r, y1i, w[1]);
        const float y2r = s0r - s1r, y2i = s0i - s1i;
        y[2 * dk] = TurnedRe<kTwiddle>(y2r, y2i, w[2]);
        y[2 * dk + kIm] = TurnedIm<kTwiddle>(y2r, y2i, w[2]);
        const float y3r = d0r + d1i, y3i = d0i - d1r;
        y[3 * dk] = TurnedRe<kTwiddle>(y3r, y3i, w[3]);
        y[3 * dk + kIm] = TurnedIm<kTwiddle>(y3r, y3i, w[3]);
      }
    }
  }
}

template <bool kTwiddle, int kIm>
void Radix5(const FftPass& pass, const float* roots, const float* in, std::ptrdiff_t inPitch, float* out,
            std::ptrdiff_t outPitch) {
  // cos and sin of a fifth and of two fifths of a turn
  const float c1 = 0.309016994374947424f, c2 = -0.809016994374947424f;
  const float s1 = 0.951056516295153572f, s2 = 0.587785252292473129f;
  const Steps step(pass, inPitch, outPitch);
  const std::ptrdiff_t di = step.di, dk = step.dk;
  for (int p = 0; p < step.blocks; ++p) {
    const Roots<kTwiddle, 5> w(roots + 8 * p);
    for (int q = 0; q < step.stride; ++q) {
      const float* a = in + step.In(p, q);
      float* b = out + step.Out(p, q);
#pragma omp simd
      for (int t = 0; t < kFftLanes; ++t) {
        const float* x = a + t;
        float* y = b + t;
        const float x0r = x[0], x0i = x[kIm];
        const float x1r = x[di], x1i = x[di + kIm], x4r = x[4 * di], x4i = x[4 * di + kIm];
        const float x2r = x[2 * di], x2i = x[2 * di + kIm], x3r = x[3 * di], x3i = x[3 * di + kIm];
        const float u1r = x1r + x4r, u1i = x1i + x4i, v1r = x1r - x4r, v1i = x1i - x4i;
        const float u2r = x2r + x3r, u2i = x2i + x3i, v2r = x2r - x3r, v2i = x2i - x3i;
        y[0] = x0r + (u1r + u2r);
        y[kIm] = x0i + (u1i + u2i);
        const float a1r = x0r + (c1 * u1r + c2 * u2r), a1i = x0i + (c1 * u1i + c2 * u2i);
        const float a2r = x0r + (c2 * u1r + c1 * u2r), a2i = x0i + (c2 * u1i + c1 * u2i);
        const float b1r = s1 * v1r + s2 * v2r, b1i = s1 * v1i + s2 * v2i;
        const float b2r = s2 * v1r - s1 * v2r, b2i = s2 * v1i - s1 * v2i;
        const float y1r = a1r - b1i, y1i = a1i + b1r;
        y[dk] = TurnedRe<kTwiddle>(y1r, y1i, w[1]);
        y[dk + kIm] = TurnedIm<kTwiddle>(y1r, y1i, w[1]);
        const float y2r = a2r - b2i, y2i = a2i + b2r;
        y[2 * dk] = TurnedRe<kTwiddle>(y2r, y2i, w[2]);
        y[2 * dk + kIm] = TurnedIm<kTwiddle>(y2r, y2i, w[2]);
        const float y3r = a2r + b2i, y3i = a2i - b2r;
        y[3 * dk] = TurnedRe<kTwiddle>(y3r, y3i, w[3]);
        y[3 * dk + kIm] = TurnedIm<kTwiddle>(y3r, y3i, w[3]);
        const float y4r = a1r + b1i, y4i = a1i - b1r;
        y[4 * dk] = TurnedRe<kTwiddle>(y4r, y4i, w[4]);
        y[4 * dk + kIm] = TurnedIm<kTwiddle>(y4r, y4i, w[4]);
      }
    }
  }
}

template <bool kTwiddle, int kIm>
void Radix8(const FftPass& pass, const float* roots, const float* in, std::ptrdiff_t inPitch, float* out,
            std::ptrdiff_t outPitch) {
  const Steps step(pass, inPitch, outPitch);
  const std::ptrdiff_t di = step.di, dk = step.dk;
  const float h = 0.707106781186547524f;
  for (int p = 0; p < step.blocks; ++p) {
    const Roots<kTwiddle, 8> w(roots + 14 * p);
    for (int q = 0; q < step.stride; ++q) {
      const float* a = in + step.In(p, q);
      float* b = out + step.Out(p, q);
#pragma omp simd
      for (int t = 0; t < kFftLanes; ++t) {
        float* y = b + t;
        // The even inputs give e0 .. e3, the odd ones g0 .. g3, each by a transform of four.
        const float x0r = a[t], x0i = a[t + kIm], x4r = a[t + 4 * di], x4i = a[t + 4 * di + kIm];
        const float x2r = a[t + 2 * di], x2i = a[t + 2 * di + kIm], x6r = a[t + 6 * di], x6i = a[t + 6 * di + kIm];
        const float s0r = x0r + x4r, s0i = x0i + x4i, d0r = x0r - x4r, d0i = x0i - x4i;
        const float s2r = x2r + x6r, s2i = x2i + x6i, d2r = x2r - x6r, d2i = x2i - x6i;
        const float e0r = s0r + s2r, e0i = s0i + s2i, e2r = s0r - s2r, e2i = s0i - s2i;
        const float e1r = d0r - d2i, e1i = d0i + d2r, e3r = d0r + d2i, e3i = d0i - d2r;

        const float x1r = a[t + di], x1i = a[t + di + kIm], x5r = a[t + 5 * di], x5i = a[t + 5 * di + kIm];
        const float x3r = a[t + 3 * di], x3i = a[t + 3 * di + kIm], x7r = a[t + 7 * di], x7i = a[t + 7 * di + kIm];
        const float s1r = x1r + x5r, s1i = x1i + x5i, d1r = x1r - x5r, d1i = x1i - x5i;
        const float s3r = x3r + x7r, s3i = x3i + x7i, d3r = x3r - x7r, d3i = x3i - x7i;
        const float g0r = s1r + s3r, g0i = s1i + s3i, g2r = s1r - s3r, g2i = s1i - s3i;
        const float g1r = d1r - d3i, g1i = d1i + d3r, g3r = d1r + d3i, g3i = d1i - d3r;

        // f1 = exp(i pi / 4) g1; exp(3 i pi / 4) g3 = -f3r + i f3i.
        const float f1r = (g1r - g1i) * h, f1i = (g1r + g1i) * h;
        const float f3r = (g3r + g3i) * h, f3i = (g3r - g3i) * h;

        y[0] = e0r + g0r;
        y[kIm] = e0i + g0i;
        const float y1r = e1r + f1r, y1i = e1i + f1i;
        y[dk] = TurnedRe<kTwiddle>(y1r, y1i, w[1]);
        y[dk + kIm] = TurnedIm<kTwiddle>(y1r, y1i, w[1]);
        const float y2r = e2r - g2i, y2i = e2i + g2r;
        y[2 * dk] = TurnedRe<kTwiddle>(y2r, y2i, w[2]);
        y[2 * dk + kIm] = TurnedIm<kTwiddle>(y2r, y2i, w[2]);
        const float y3r = e3r - f3r, y3i = e3i + f3i;
        y[3 * dk] = TurnedRe<kTwiddle>(y3r, y3i, w[3]);
        y[3 * dk + kIm] = TurnedIm<kTwiddle>(y3r, y3i, w[3]);
        const float y4r = e0r - g0r, y4i = e0i - g0i;
        y[4 * dk] = TurnedRe<kTwiddle>(y4r, y4i, w[4]);
        y[4 * dk + kIm] = TurnedIm<kTwiddle>(y4r, y4i, w[4]);
        const float y5r = e1r - f1r, y5i = e1i - f1i;
        y[5 * dk] = TurnedRe<kTwiddle>(y5r, y5i, w[5]);
        y[5 * dk + kIm] = TurnedIm<kTwiddle>(y5r, y5i, w[5]);
        const float y6r = e2r + g2i, y6i = e2i - g2r;
        y[6 * dk] = TurnedRe<kTwiddle>(y6r, y6i, w[6]);
        y[6 * dk + kIm] = TurnedIm<kTwiddle>(y6r, y6i, w[6]);
        const float y7r = e3r + f3r, y7i = e3i - f3i;
        y[7 * dk] = TurnedRe<kTwiddle>(y7r, y7i, w[7]);
        y[7 * dk + kIm] = TurnedIm<kTwiddle>(y7r, y7i, w[7]);
      }
    }
  }
}

// Any odd radix r: the inputs j and r - j in sums and differences, the outputs k and r - k from the same products.
// kHalf is (r - 1) / 2 where loops of known length are worth it, else 0.
template <bool kTwiddle, int kIm, int kHalf>
void RadixOdd(const FftPass& pass, const float* roots, const float* turns, const float* in, std::ptrdiff_t inPitch,
              float* out, std::ptrdiff_t outPitch) {
  const Steps step(pass, inPitch, outPitch);
  const int radix = pass.radix, half = kHalf ? kHalf : radix / 2;
  float zero[kFftElement], all[kFftElement];
  float sums[kFftLargestRadix / 2 * kFftElement], differences[kFftLargestRadix / 2 * kFftElement];
  for (int p = 0; p < step.blocks; ++p) {
    const float* w = roots + 2 * (radix - 1) * p;
    for (int q = 0; q < step.stride; ++q) {
      const float* a = in + step.In(p, q);
      float* b = out + step.Out(p, q);
#pragma omp simd
      for (int t = 0; t < kFftLanes; ++t) {
        zero[t] = all[t] = a[t];
        zero[t + kFftLanes] = all[t + kFftLanes] = a[t + kIm];
      }
      for (int j = 0; j < half; ++j) {
        const float* x = a + (j + 1) * step.di;
        const float* z = a + (radix - 1 - j) * step.di;
        float* u = sums + j * kFftElement;
        float* v = differences + j * kFftElement;
#pragma omp simd
        for (int t = 0; t < kFftLanes; ++t) {
          const float ur = x[t] + z[t], ui = x[t + kIm] + z[t + kIm];
          u[t] = ur;
          u[t + kFftLanes] = ui;
          v[t] = x[t] - z[t];
          v[t + kFftLanes] = x[t + kIm] - z[t + kIm];
          all[t] += ur;
          all[t + kFftLanes] += ui;
        }
      }
#pragma omp simd
      for (int t = 0; t < kFftLanes; ++t) {
        b[t] = all[t];
        b[t + kIm] = all[t + kFftLanes];
      }
      for (int k = 1; k <= half; ++k) {
        const float* c = turns + 2 * (k - 1) * half;
        const Root w1 = kTwiddle ? Root{w[2 * k - 2], w[2 * k - 1]} : Root{};
        const Root w2 = kTwiddle ? Root{w[2 * (radix - k) - 2], w[2 * (radix - k) - 1]} : Root{};
        float* y = b + k * step.dk;
        float* z = b + (radix - k) * step.dk;
#pragma omp simd
        for (int t = 0; t < kFftLanes; ++t) {
          float ar = zero[t], ai = zero[t + kFftLanes], br = 0.0f, bi = 0.0f;
          for (int j = 0; j < half; ++j) {
            ar += sums[j * kFftElement + t] * c[2 * j];
            ai += sums[j * kFftElement + t + kFftLanes] * c[2 * j];
            br += differences[j * kFftElement + t] * c[2 * j + 1];
            bi += differences[j * kFftElement + t + kFftLanes] * c[2 * j + 1];
          }
          const float yr = ar - bi, yi = ai + br;
          y[t] = TurnedRe<kTwiddle>(yr, yi, w1);
          y[t + kIm] = TurnedIm<kTwiddle>(yr, yi, w1);
          const float zr = ar + bi, zi = ai - br;
          z[t] = TurnedRe<kTwiddle>(zr, zi, w2);
          z[t + kIm] = TurnedIm<kTwiddle>(zr, zi, w2);
        }
      }
    }
  }
}

template <bool kTwiddle, int kIm>
void Run(const FftPass& pass, const float* roots, const float* turns, const float* in, std::ptrdiff_t inPitch,
         float* out, std::ptrdiff_t outPitch) {
  switch (pass.radix) {
    case 2:
      return Radix2<kTwiddle, kIm>(pass, roots, in, inPitch, out, outPitch);
    case 3:
      return Radix3<kTwiddle, kIm>(pass, roots, in, inPitch, out, outPitch);
    case 4:
      return Radix4<kTwiddle, kIm>(pass, roots, in, inPitch, out, outPitch);
    case 5:
      return Radix5<kTwiddle, kIm>(pass, roots, in, inPitch, out, outPitch);
    case 8:
      return Radix8<kTwiddle, kIm>(pass, roots, in, inPitch, out, outPitch);
    case 7:
      return RadixOdd<kTwiddle, kIm, 3>(pass, roots, turns, in, inPitch, out, outPitch);
    case 11:
      return RadixOdd<kTwiddle, kIm, 5>(pass, roots, turns, in, inPitch, out, outPitch);
    case 13:
      return RadixOdd<kTwiddle, kIm, 6>(pass, roots, turns, in, inPitch, out, outPitch);
    default:
      return RadixOdd<kTwiddle, kIm, 0>(pass, roots, turns, in, inPitch, out, outPitch);
  }
}

}  // namespace

void RunFftPass(const FftPass& pass, const float* roots, const float* turns, const float* in, std::ptrdiff_t inPitch,
                float* out, std::ptrdiff_t outPitch, bool swap) {
  if (swap) {
    in += kFftLanes;
    out += kFftLanes;
    (pass.turned ? Run<true, -kFftLanes> : Run<false, -kFftLanes>)(pass, roots, turns, in, inPitch, out, outPitch);
  } else {
    (pass.turned ? Run<true, kFftLanes> : Run<false, kFftLanes>)(pass, roots, turns, in, inPitch, out, outPitch);
  }
}

}  // namespace qmr
