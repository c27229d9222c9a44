// Between real rows, complex lines side by side and half spectra.
//
// A band is up to 32 rows of an image, two a lane: row t is the real part of lane t, row t + 16 its imaginary part.
// A half spectrum has its columns in blocks of 16 (see real_transform.h).
#pragma once

#include <cstddef>

namespace qmr {

constexpr int kBandRows = 32;

// `rows` rows of `width` floats without gaps become lines side by side; the lanes without rows are zero.
void LoadBand(const float* image, int width, int rows, float* lanes);
// The reverse; only `rows` rows are written.
void StoreBand(const float* lanes, int width, int rows, float* image);

// Takes the transforms of the two rows of each lane apart, as both are symmetric, and writes their frequencies 0 ..
// width / 2 times `scale` to rows of a half spectrum: `rows` rows from `spectrum` on in its first block, blocks
// `blockFloats` apart.
void SplitBand(const float* lanes, int width, int rows, float scale, float* spectrum, std::size_t blockFloats);
// The reverse. Frequencies that are their own conjugates count as real.
void MergeBand(const float* spectrum, std::size_t blockFloats, int width, int rows, float* lanes);

// a *= b, or a *= the conjugate of b, over `rows` rows of a block.
void MultiplyBlock(float* a, const float* b, std::size_t rows, bool conjugate);
void DivideBlock(float* a, std::size_t rows, float divisor);

}  // namespace qmr
