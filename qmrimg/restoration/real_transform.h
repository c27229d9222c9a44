// Fourier transforms of real images of any size, with everything that can be prepared made once.
//
// A transform is two calls, one along the rows and one along the columns, so that a caller can report its progress and
// give up between them. Calls run on all threads, allocate nothing and have the same bits for every number of threads.
//
//   forward:  F(u, v) = 1 / (W H) sum over x, y of f(x, y) exp(-2 pi i (u x / W + v y / H))
//   inverse:  f(x, y) = sum over u, v of F(u, v) exp(+2 pi i (u x / W + v y / H))
//
// so that the inverse undoes the forward transform, and the cyclic convolution of two images is the inverse of the
// product of their spectra, times W H.
//
// A half spectrum holds the frequencies u = 0 .. W / 2; the others are their conjugates. It is an array of
// SpectrumFloats() floats on a 64-byte boundary: columns in blocks of 16, a block is H rows, and a row of a block is
// the 16 real parts followed by the 16 imaginary parts. Columns beyond W / 2 in the last block are zero and stay so.
#pragma once

#include <cstddef>
#include <optional>

#include "qmrimg/image/row_frame.h"
#include "qmrimg/stacking/kernels/fft_lanes.h"
#include "qmrimg/store/block.h"

namespace qmr {

// What is made of the other spectrum before spectra are multiplied.
enum class Factor { kPlain, kConjugate };

class QMR_API RealTransform {
 public:
  // Tables and the scratch of all threads; nothing when a size is below 1 or above 2^26, or the memory can't be had.
  static std::optional<RealTransform> Create(int width, int height);

  int Width() const { return width_; }
  int Height() const { return height_; }
  std::size_t SpectrumFloats() const { return static_cast<std::size_t>(blocks_) * BlockFloats(); }
  // Memory of one half spectrum, of no defined content; its Get() is null when it can't be had.
  Block MakeSpectrum() const { return Block(SpectrumFloats() * sizeof(float), Block::Content::kUndefined); }

  // Where the real part of frequency (u, v) stands, 0 <= u <= W / 2, 0 <= v < H; the imaginary part stands
  // FftLanes::kLanes floats behind it. The zero frequency is real and stands at 0.
  std::size_t Position(int u, int v) const;

  // `image` is W x H floats without gaps, row after row. The two forward calls fill `spectrum`.
  void ForwardRows(const float* image, float* spectrum);
  void ForwardColumns(float* spectrum);

  // The two inverse calls; the columns change `spectrum` in place. Of frequencies that are their own conjugates only
  // what a real image can have is used.
  void InverseColumns(float* spectrum);
  void InverseRows(const float* spectrum, float* image);

  // For convolution and correlation: ForwardRows, FilterColumns, InverseRows. In one pass over the memory finishes the
  // transform, multiplies it by `other` or its conjugate, and begins the inverse. `other` is a spectrum apart, made by
  // the two forward calls.
  void FilterColumns(float* spectrum, const float* other, Factor factor);

  // spectrum /= divisor.
  void Divide(float* spectrum, float divisor) const;

 private:
  RealTransform(int width, int height);

  std::size_t BlockFloats() const { return static_cast<std::size_t>(height_) * FftLanes::kElement; }
  void Columns(float* spectrum, FftSign sign);
  // Runs `work(first, last, scratch)` over contiguous parts of 0 .. count - 1, one part a scratch.
  void Share(int count, FunctionRef<void(int, int, float*)> work);

  int width_;
  int height_;
  int blocks_;  // of 16 columns
  FftLanes rows_;
  FftLanes columns_;
  int parts_;  // threads at the time of construction
  std::size_t partFloats_;
  Block scratch_;
};

}  // namespace qmr
