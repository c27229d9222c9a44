// The butterflies of the Fourier transforms, sixteen lines side by side.
//
// Element j of all lines is 32 floats: their sixteen real parts, then their sixteen imaginary parts.
#pragma once

#include <cstddef>

namespace qmr {

constexpr int kFftLanes = 16;
constexpr int kFftElement = 2 * kFftLanes;  // floats
constexpr int kFftLargestRadix = 127;

// The sign of the exponent.
enum class FftSign { kPlus, kMinus };

// One pass of the self-sorting kind: butterfly q of block p takes the elements q + stride (p + j blocks), j = 0 ..
// radix - 1, and makes the elements q + stride (radix p + j) of them.
struct FftPass {
  int radix;          // 2, 3, 4, 5, 8 or an odd number from 7 to kFftLargestRadix
  int blocks;         // butterflies with factors of their own
  int stride;         // butterflies that share one set of factors
  bool turned;        // whether the outputs of each butterfly but the first are multiplied by factors
  std::size_t roots;  // where the factors begin in a table of the owner
  std::size_t turns;  // where the turns begin there
};

// Runs a pass with the exponent's sign plus. `roots` has radix - 1 pairs (cos, sin) a block if the pass is turned,
// an odd radix r from 7 on takes in `turns` the pairs of j k r-ths of a turn, 1 <= k, j <= r / 2, j running first.
// Elements of `in` and `out`, which do not overlap, are the pitches apart, in floats. `swap` exchanges real and
// imaginary parts on both sides: a transform whose passes all do so has the sign minus.
void RunFftPass(const FftPass& pass, const float* roots, const float* turns, const float* in, std::ptrdiff_t inPitch,
                float* out, std::ptrdiff_t outPitch, bool swap);

}  // namespace qmr
