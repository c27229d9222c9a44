// The blurring operator of the maximum entropy solver: convolution with a point-spread function and its adjoint.
#pragma once

#include <cstddef>

class CVynImage;

namespace qmr {

// What `mode` of MemBlur is set to.
enum MemBlurResult { kMemBlurDone = 0, kMemBlurRefused = 1, kMemBlurNoPass = 7, kMemBlurCancelled = 8 };

// Convolves `input` with the PSF, both cyclic on a grid of w x h (powers of two), into `output`, which may be the
// same array. `work` is MemBlurWorkFloats(w, h) floats and belongs to the operator from a reset to the next one: the
// spectrum of the PSF stands in its first part.
//
// `*mode` on entry: below 0 resets the operator and does nothing else; 1 and 3 convolve; 2 is the adjoint. It is set
// to one of MemBlurResult. With `progress`, percentages between `progressFrom` and `progressTo` are posted.
//
// The PSF's centroid goes to the origin, its fraction of a pixel as a phase. Elements beyond the grid wrap.
// The state between two calls belongs to the calling thread.
using MemOperator = void (*)(float* output, float* input, float* psf, float* work, int w, int h, int psfWidth,
                             int psfHeight, int* mode, CVynImage* progress, int progressFrom, int progressTo);

void MemBlur(float* output, float* input, float* psf, float* work, int w, int h, int psfWidth, int psfHeight, int* mode,
             CVynImage* progress, int progressFrom, int progressTo);

std::size_t MemBlurWorkFloats(int w, int h);

}  // namespace qmr
