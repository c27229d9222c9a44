#include "qmrimg/stacking/kernels/fft_lanes.h"

#include <algorithm>
#include <cstdint>

#include "qmrimg/stacking/kernels/fft_trig.h"

// A long line is a matrix of outer x inner elements: element inner * i + j stands in row i, column j. The first passes
// work within the columns, the last ones within the rows, so each column and each row is finished while it lies in a
// near cache. The factors are those that the passes would have without the matrix.
namespace qmr {
namespace {

constexpr int kElement = FftLanes::kElement;
constexpr int kLongFrom = 2049;  // from here on two buffers of a line are more than the second-level cache

constexpr int kChirpFrom = 64;       // no length below is cheaper by convolution
constexpr double kChirpExtra = 3.0;  // the products around the two transforms of a convolution, in the units of Cost

// What a pass costs an element, about; only the ratios count.
double Cost(int radix) {
  switch (radix) {
    case 2:
    case 3:
    case 4:
      return 1.0;
    case 5:
      return 1.3;
    case 8:
      return 1.4;
    default:
      return 0.6 + 0.2 * radix;
  }
}

// The radices of a length in ascending order; empty for 1 and for a length with a factor that has no pass.
std::vector<int> Radices(int length) {
  std::vector<int> radices;
  int rest = length, twos = 0;
  for (; rest % 2 == 0; rest /= 2) ++twos;
  // Eights as far as they go, but two fours rather than an eight and a two.
  if (twos == 1) radices.push_back(2);
  while (twos > 1) {
    const int bits = twos % 3 == 0 ? 3 : 2;
    radices.push_back(1 << bits);
    twos -= bits;
  }
  for (int odd = 3; odd <= kFftLargestRadix && rest > 1; odd += 2) {
    for (; rest % odd == 0; rest /= odd) radices.push_back(odd);
  }
  if (rest > 1) return {};
  std::sort(radices.begin(), radices.end());
  return radices;
}

double Cost(const std::vector<int>& radices) {
  double cost = 0.0;
  for (const int radix : radices) cost += Cost(radix);
  return cost;
}

// The cheapest length from `least` on that has small factors only.
int CheapLength(int least, double* cost) {
  int best = 0;
  for (std::int64_t fives = 1; fives < 2 * std::int64_t{least}; fives *= 5) {
    for (std::int64_t threes = fives; threes < 2 * std::int64_t{least}; threes *= 3) {
      std::int64_t n = threes;
      while (n < least) n *= 2;
      const double c = static_cast<double>(n) * Cost(Radices(static_cast<int>(n)));
      if (best == 0 || c < *cost) {
        best = static_cast<int>(n);
        *cost = c;
      }
    }
  }
  return best;
}

// Splits the radices so that the larger of the two products is as small as it gets; gives the first.
int Split(const std::vector<int>& radices, int length, std::vector<int>* outer, std::vector<int>* inner) {
  const std::size_t sets = std::size_t{1} << radices.size();
  std::size_t best = sets - 1;
  int bestProduct = length;
  for (std::size_t set = 0; set < sets; ++set) {
    int product = 1;
    for (std::size_t i = 0; i < radices.size(); ++i) product *= set >> i & 1 ? radices[i] : 1;
    if (std::max(product, length / product) < std::max(bestProduct, length / bestProduct)) {
      best = set;
      bestProduct = product;
    }
  }
  for (std::size_t i = 0; i < radices.size(); ++i) (best >> i & 1 ? outer : inner)->push_back(radices[i]);
  return bestProduct;
}

void PushRoot(std::int64_t k, std::int64_t n, std::vector<float>* table) {
  double c, s;
  UnitRoot(static_cast<long>(k), static_cast<long>(n), &c, &s);
  table->push_back(static_cast<float>(c));
  table->push_back(static_cast<float>(s));
}

// to = from * factor, an element of `factor` being the same for all lanes. The imaginary parts are `fromIm` and `toIm`
// floats away from the real parts.
void Turn(const float* from, std::ptrdiff_t fromIm, const float* factor, int count, float* to, std::ptrdiff_t toIm) {
  for (int j = 0; j < count; ++j) {
    const float wr = factor[2 * j], wi = factor[2 * j + 1];
    const float* x = from + static_cast<std::ptrdiff_t>(j) * kElement;
    float* y = to + static_cast<std::ptrdiff_t>(j) * kElement;
#pragma omp simd
    for (int t = 0; t < kFftLanes; ++t) {
      const float re = x[t], im = x[t + fromIm];
      y[t] = re * wr - im * wi;
      y[t + toIm] = re * wi + im * wr;
    }
  }
}

}  // namespace

FftLanes::FftLanes(int length) : length_(length) {
  const std::vector<int> radices = Radices(length);
  if (length > kChirpFrom) {
    double cost = 0.0;
    const int convolution = CheapLength(2 * length - 1, &cost);
    if (radices.empty() || length * Cost(radices) > 2.0 * cost + kChirpExtra * convolution) {
      MakeChirp(convolution);
      return;
    }
  }
  std::vector<int> outer = radices, inner;
  outer_ = length;
  if (length >= kLongFrom && radices.size() > 1) {
    outer.clear();
    outer_ = Split(radices, length, &outer, &inner);
  }
  inner_ = length / outer_;
  MakePasses(outer, length, inner_, 1, &outerPasses_);
  MakePasses(inner, inner_, 1, 1, &innerPasses_);
  // Two buffers of a column or row, and the matrix with one element of padding a row: rows at a power of two would all
  // fall into the same cache sets.
  workFloats_ = 2 * static_cast<std::size_t>(std::max(outer_, inner_)) * kElement;
  if (inner_ > 1) workFloats_ += static_cast<std::size_t>(outer_) * (inner_ + 1) * kElement;
}

// The passes of the first radices of a transform of `size` elements, for each of `groups` groups of elements that are
// `groups` apart.
void FftLanes::MakePasses(const std::vector<int>& radices, int size, int groups, int stride,
                          std::vector<FftPass>* passes) {
  for (const int radix : radices) {
    const int butterflies = size / radix, blocks = butterflies / groups;
    FftPass pass = {radix, blocks, stride, butterflies > 1, table_.size(), 0};
    for (int group = 0; group < groups && pass.turned; ++group) {
      for (int p = 0; p < blocks; ++p) {
        const std::int64_t first = group + static_cast<std::int64_t>(groups) * p;
        for (int j = 1; j < radix; ++j) PushRoot(first * j, size, &table_);
      }
    }
    pass.turns = table_.size();
    if (radix > 5 && radix % 2) {
      for (int k = 1; k <= radix / 2; ++k) {
        for (int j = 1; j <= radix / 2; ++j) PushRoot(j * k % radix, radix, &table_);
      }
    }
    passes->push_back(pass);
    stride *= radix;
    size = butterflies;
  }
}

// exp(2 pi i j k / N) = chirp(j) chirp(k) / chirp(k - j): a convolution with the conjugate chirp, at any length from
// 2 N - 1 on, does the sum (Bluestein 1970).
void FftLanes::MakeChirp(int convolution) {
  const std::int64_t n = length_;
  const int m = convolution;
  convolution_ = std::make_unique<FftLanes>(m);
  chirp_.reserve(2 * static_cast<std::size_t>(length_));
  // The squares are reduced by whole turns while they are integers.
  for (std::int64_t j = 0; j < n; ++j) PushRoot(j * j % (2 * n), 2 * n, &chirp_);
  workFloats_ = static_cast<std::size_t>(m) * kElement + convolution_->WorkFloats();

  std::vector<float> lanes(workFloats_);
  for (int j = 0; j < length_; ++j) {
    for (const int place : {j, (m - j) % m}) {
      float* x = lanes.data() + static_cast<std::ptrdiff_t>(place) * kElement;
      x[0] = chirp_[2 * static_cast<std::size_t>(j)];
      x[kLanes] = -chirp_[2 * static_cast<std::size_t>(j) + 1];
    }
  }
  convolution_->Transform(lanes.data(), lanes.data(), FftSign::kPlus,
                          lanes.data() + static_cast<std::ptrdiff_t>(m) * kElement);
  filter_.resize(2 * static_cast<std::size_t>(m));
  for (int j = 0; j < m; ++j) {
    const float* x = lanes.data() + static_cast<std::ptrdiff_t>(j) * kElement;
    filter_[2 * static_cast<std::size_t>(j)] = x[0] / static_cast<float>(m);
    filter_[2 * static_cast<std::size_t>(j) + 1] = x[kLanes] / static_cast<float>(m);
  }
}

// The passes of one group of elements; the first reads `in`, the last writes `out`, those between use `work`.
void FftLanes::Short(const std::vector<FftPass>& passes, int group, const float* in, std::ptrdiff_t inPitch, float* out,
                     std::ptrdiff_t outPitch, bool swap, float* work) const {
  float* free = work;
  float* other = work + static_cast<std::ptrdiff_t>(std::max(outer_, inner_)) * kElement;
  for (std::size_t i = 0; i < passes.size(); ++i) {
    const FftPass& pass = passes[i];
    const bool last = i + 1 == passes.size();
    const std::size_t roots = pass.roots + static_cast<std::size_t>(group) * pass.blocks * 2 * (pass.radix - 1);
    RunFftPass(pass, table_.data() + roots, table_.data() + pass.turns, in, inPitch, last ? out : free,
               last ? outPitch : kElement, swap);
    in = free;
    inPitch = kElement;
    std::swap(free, other);
  }
}

void FftLanes::Transform(const float* in, float* out, FftSign sign, float* work) const {
  if (convolution_) return ByChirp(in, out, sign, work);
  const bool swap = sign == FftSign::kMinus;
  const std::ptrdiff_t outer = outer_, inner = inner_;
  if (inner == 1) {
    // A single pass can't work in place.
    if (outerPasses_.size() < 2) {
      float* copy = outerPasses_.empty() ? out : work;
      if (copy != in) std::copy_n(in, outer * kElement, copy);
      in = copy;
    }
    Short(outerPasses_, 0, in, kElement, out, kElement, swap, work);
    return;
  }
  float* matrix = work + 2 * std::max(outer, inner) * kElement;
  const std::ptrdiff_t row = (inner + 1) * kElement;
  for (std::ptrdiff_t j = 0; j < inner; ++j) {
    Short(outerPasses_, static_cast<int>(j), in + j * kElement, inner * kElement, matrix + j * kElement, row, swap,
          work);
  }
  for (std::ptrdiff_t k = 0; k < outer; ++k) {
    Short(innerPasses_, 0, matrix + k * row, kElement, out + k * kElement, outer * kElement, swap, work);
  }
}

void FftLanes::ByChirp(const float* in, float* out, FftSign sign, float* work) const {
  const int n = length_, m = convolution_->Length();
  float* padded = work;
  float* rest = work + static_cast<std::ptrdiff_t>(m) * kElement;
  // With the parts exchanged on both sides the same chirp serves the sign minus.
  const std::ptrdiff_t im = sign == FftSign::kPlus ? kLanes : -kLanes;
  const std::ptrdiff_t re = sign == FftSign::kPlus ? 0 : kLanes;
  Turn(in + re, im, chirp_.data(), n, padded, kLanes);
  std::fill(padded + static_cast<std::ptrdiff_t>(n) * kElement, rest, 0.0f);
  convolution_->Transform(padded, padded, FftSign::kPlus, rest);
  Turn(padded, kLanes, filter_.data(), m, padded, kLanes);
  convolution_->Transform(padded, padded, FftSign::kMinus, rest);
  Turn(padded, kLanes, chirp_.data(), n, out + re, im);
}

}  // namespace qmr
