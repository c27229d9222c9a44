// Complex transforms of any length of sixteen lines side by side.
//
// Element j of all lines is 32 floats: their sixteen real parts, then their sixteen imaginary parts. Lines never mix,
// so the bits of a line do not depend on the other fifteen.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "qmrimg/stacking/kernels/fft_butterflies.h"

namespace qmr {

// Factors and passes of one length. Nothing changes after construction: all threads share one plan.
class FftLanes {
 public:
  static constexpr int kLanes = kFftLanes;
  static constexpr int kElement = kFftElement;
  static constexpr int kLongest = 1 << 26;

  // `length` is 1 .. kLongest. Throws std::bad_alloc when there is no memory for the tables.
  explicit FftLanes(int length);

  int Length() const { return length_; }

  // Floats of scratch that a thread needs; best aligned to 64 bytes.
  std::size_t WorkFloats() const { return workFloats_; }

  // out[k] = the sum over j of in[j] exp(sign 2 pi i j k / N), for Length() elements. `out` may be `in`; `work` is
  // apart from both.
  void Transform(const float* in, float* out, FftSign sign, float* work) const;

 private:
  void MakePasses(const std::vector<int>& radices, int size, int groups, int stride, std::vector<FftPass>* passes);
  void MakeChirp(int convolution);
  void Short(const std::vector<FftPass>& passes, int group, const float* in, std::ptrdiff_t inPitch, float* out,
             std::ptrdiff_t outPitch, bool swap, float* work) const;
  void ByChirp(const float* in, float* out, FftSign sign, float* work) const;

  int length_;
  int outer_ = 1;  // a long line is a matrix of outer_ x inner_ elements; a short one has inner_ = 1
  int inner_ = 1;
  std::size_t workFloats_ = 0;
  std::vector<FftPass> outerPasses_;
  std::vector<FftPass> innerPasses_;
  std::vector<float> table_;

  // For lengths with a large prime factor.
  std::unique_ptr<FftLanes> convolution_;
  std::vector<float> chirp_;   // pairs of exp(i pi j^2 / N)
  std::vector<float> filter_;  // the spectrum of the conjugate chirp, in pairs
};

}  // namespace qmr
