// Complex transforms of lines whose length is a power of two, in arrays of interleaved floats (real, imaginary).
//
// Every line goes through the same arithmetic, be it a row or one of sixteen columns side by side, so its bits depend
// neither on its neighbours nor on the number of threads.
#pragma once

#include <cstddef>
#include <vector>

#include "qmrimg/stacking/kernels/fft_butterflies.h"

namespace qmr {

// Twiddle factors and passes of one length. Nothing changes after construction: all threads share one plan.
class FftPlan {
 public:
  // Columns that travel together: 16 of them fill two cache lines.
  static constexpr int kLanes = kFftLanes;

  // `length` is a power of two, at least 1.
  explicit FftPlan(int length);

  int Length() const { return length_; }

  // Floats of scratch that a thread needs for Row or Columns; best aligned to 64 bytes.
  std::size_t WorkFloats() const { return workFloats_; }

  // In place: the sum over j of line[j] exp(sign 2 pi i j k / N), times `scale`.
  void Row(float* line, FftSign sign, float scale, float* work) const;

  // The same for `count` (1..kLanes) columns side by side; `first` is the top of the leftmost, `stride` the distance
  // of two rows in complex elements.
  void Columns(float* first, std::ptrdiff_t stride, int count, FftSign sign, float scale, float* work) const;

 private:
  std::vector<FftPass> MakePasses(int n);
  float* Short(const std::vector<FftPass>& passes, float* a, float* b) const;
  void LongRow(float* line, bool swap, float scale, float* work) const;

  int length_;
  int outer_;  // a long line is a matrix of outer_ x inner_ elements; a short one has inner_ = 1
  int inner_;
  std::size_t workFloats_;
  std::vector<FftPass> outerPasses_;
  std::vector<FftPass> innerPasses_;
  std::vector<float> roots_;
  std::vector<float> crossRe_;  // factors between the two steps of a long line, outer_ x inner_
  std::vector<float> crossIm_;
};

}  // namespace qmr
