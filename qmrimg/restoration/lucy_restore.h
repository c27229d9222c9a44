// The solver of the Richardson-Lucy restoration, on plain arrays.
//
// Richardson 1972 and Lucy 1974, with a photon gain and a read noise in model and data, and with the accelerations of
// Hook and Lucy 1992 (a line search along the step) and of Adorf, Hook, Lucy and Murtagh 1992 ("turbo": the step
// combined with the one before it).
#pragma once

#include "qmrimg/platform/export.h"

class CVynImage;

// What a run works with. The working grid is as large as image and point-spread function need, W x H, with no padding
// to a power of two; the image lies in its middle, from column (W - w) / 2 and row (H - h) / 2 counted from 0. Arrays
// are row by row without gaps. They belong to the run and end with it.
struct LucyState {
  int paddedWidth, paddedHeight;  // W and H
  int imageWidth, imageHeight;    // w and h
  int psfWidth, psfHeight;        // of the point-spread function as it was passed
  float* mask;                    // W x H: 1 where a pixel counts, 0 in the padding and at rejected pixels
  float* norm;                    // W x H: first the centred point-spread function, later the normalising image
  float* estimate;                // W x H: the restored image
  float* background;              // one value, 0, added to the model
  float* blurred;                 // W x H: the estimate convolved with the point-spread function
  float* previousBlurredStep;     // W x H, turbo only: the last step, convolved
  float* previousStep;            // W x H, turbo only: the last step
  float* psfTransform;  // transform of the point-spread function; that of a real array keeps W / 2 + 1 columns
};

// Restores `data` (w x h floats, replaced by the result) by at most `iterations` turbo steps, which end early when the
// reduced chi-square is at or below `chiLimit`. With `iterations` 0 or less it becomes the first estimate.
//
// `psf` is psfWidth x psfHeight; its first largest element is the point that stands still, its sum doesn't matter, what
// is negative counts as 0. `firstGuess` (w x h) is where the run starts, null for a flat image at the mean of the data
// (which fills w columns from the grid's first one: of an image narrower than `psf` the last (psfWidth - w) / 2 columns
// start, and stay, at 0). `gain` is in electrons a unit of the data, `readNoise` in electrons. Data below -rejectSigma
// times the read noise are left out of everything; with `rejectSigma` 0 or less the limit is -readNoise * readNoise /
// gain. With a `progress` image its report runs as percentages of the preparation and of each iteration, under a title
// with the number of the iteration and, unless it is 0, of the `plane`.
//
// Gives 0; 1 for lack of memory (and for sides above 2^26); 2 when Esc was pressed. With 1 and 2 `data` is as it was.
// Without data, without a point-spread function or with a size below 1 there is nothing to do: 0. Values that leave no
// sense (a gain of 0, not-a-number) give pixels that are not numbers.
QMR_API int LucyRestore(float* data, int w, int h, float* psf, int psfWidth, int psfHeight, float* firstGuess,
                        int iterations, double gain, double readNoise, double chiLimit, double rejectSigma,
                        CVynImage* progress, int plane);

namespace qmr {

// Switches the solver's reports on standard output, which are off by default.
QMR_API void SetLucyVerbose(bool on);

enum class LucyMode {
  kPlain = 0,        // the estimate times the correction
  kAccelerated = 1,  // a line search along that step
  kTurbo = 2         // the step made conjugate to the one before, and a line search that may go backwards
};

// The arguments of LucyRestore by name, and what only this entry has.
struct LucyRun {
  float* data = nullptr;
  int width = 0;
  int height = 0;
  const float* psf = nullptr;
  int psfWidth = 0;
  int psfHeight = 0;
  const float* firstGuess = nullptr;
  int iterations = 0;
  double gain = 1.0;
  double readNoise = 0.0;
  double chiLimit = 1.0;
  double rejectSigma = 5.0;
  CVynImage* progress = nullptr;
  int plane = 0;

  LucyMode mode = LucyMode::kTurbo;
  // Above 0 the run also ends after two iterations running that lowered chi-square by less than this part of it. With
  // noise that neighbouring pixels share, as in stacks, no value of chi-square itself tells when to end.
  double leastGain = 0.0;
  // Iterations of an earlier run that `firstGuess` came from: they only show in the reports.
  int earlierIterations = 0;
};

struct LucyOutcome {
  int code = 0;            // as LucyRestore gives it
  int iterations = 0;      // that were finished
  double chiSquare = 0.0;  // the last one
};

// The run behind LucyRestore; both tell their steps to those who watch (restoration_steps.h).
QMR_API LucyOutcome RunLucy(const LucyRun& run);

}  // namespace qmr
