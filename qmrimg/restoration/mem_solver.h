// The maximum entropy solver, for any blurring operator.
#pragma once

#include "qmrimg/restoration/mem_blur.h"

class CVynImage;

namespace qmr {

// The data fill the upper left dataWidth x dataHeight of a grid; the rest of it is padding, which the model may fill
// as it likes. All arrays are of the grid's size.
struct MemProblem {
  const float* data;
  int dataWidth;
  int dataHeight;
  int w;
  int h;
  float* psf;
  int psfWidth;
  int psfHeight;
  double variance;  // of a data value
  MemOperator blur;
  CVynImage* progress;  // may be null
  int plane;
};

// Limits of a run, and what it reached: rms step, largest step, rms residual, all in data units, and the number of
// main iterations.
using MemStopLimits = double[4];

// Writes the restored image to `result` and gives a code of MemRestore's. `result` may be the array of the data.
int MemSolve(const MemProblem& problem, float* result, MemStopLimits& stopLimits);

}  // namespace qmr
