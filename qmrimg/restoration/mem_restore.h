// The maximum entropy solver on plain arrays.
#pragma once

#include "qmrimg/platform/export.h"

class CVynImage;

// Restores `input` (w x h floats, row after row) into `output` (the same size; it may be the same array).
//
// `psf` (psfWidth x psfHeight) is the point-spread function in data units, of sum 1 for a restoration that keeps the
// flux; its centroid is taken as its place, so that nothing moves. `variance` is that of a pixel's noise, in squared
// data units; a standard deviation below a millionth of the data's rms counts as that. Values that are not
// finite carry no weight. Every value of the result is above 0: the model is positive, whatever the data.
//
// The run ends after the first iteration whose rms step over all pixels is at most 0.5, or whose largest step is at
// most 1.0, or whose rms residual is at most 0.05, all in data units, and after `iterations` in any case (0 or less:
// after 500). Data of a small range, say 0 .. 1, end after one iteration: scale them up before.
//
// `progress` may be null; otherwise its window is told of each transform, and Esc there ends the run. `plane` is the
// number in its titles, 0 for titles without one. All threads of the library take part; the result has the same bits
// for any number of them. Runs of different threads do not disturb each other.
//
// The answer is a code in decimal digits, the last one first. 0, 5, 6 and 56 are successes:
//   1  a size that the blurring operator refuses       5  the last search direction was a restarted one
//   2  no memory for the solver's arrays               6  the smallest value of the result, in units of the mean of
//   4  arguments without a solution: null arrays,         the data, is 1e-10 or less
//      sizes below 1, a PSF without a finite sum       7  a column pass had no memory
//      above 0                                         8  cancelled
// With 1, 2, 4, 7 and 8 `output` is untouched.
QMR_API int MemRestore(float* input, float* output, int w, int h, float* psf, int psfWidth, int psfHeight,
                       double variance, int iterations, CVynImage* progress, int plane);

namespace qmr {

// Switches the solver's reports on standard output, which are off by default.
QMR_API void SetMemVerbose(bool on);

}  // namespace qmr
