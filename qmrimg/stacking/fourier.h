// Shift and rotation between frames by phase-only correlation, and the Fourier transform of images.
#pragma once

#include "qmrimg/image/vyn_image.h"

class CFftd;
struct dcomplex;

// The object is the reference frame; plane 0 of it and of the frame are compared. Shifts and angles come in the form
// that compositing takes: a result that reads the frame at (x - dx, y - dy), turned by `angle`, lies on the
// reference. So a frame that shows reference(x - d) has the shift -d.
//
// Without a rectangle the arrays are those of the next powers of two, zero on the right and below, and the window and
// the surface are theirs. A rectangle's sides are lowered to powers of two; give one whose sides are. Rotation wants
// a square whose side is a power of two. To measure any other frame, cut a centred square out of both.
//
// The operations give 1, or 0 when the memory can't be had: `failWidth` and `failHeight` then are the sizes that were
// asked for, and no result is stored. Images for output may be null; what the arrays do not cover of them stays.
class QMR_API CImgFourier : public CVynImage {
 public:
  CImgFourier();
  ~CImgFourier() override;

  // `sigma`: 0 or less finds the peak on a slightly smoothed copy and evaluates it on the surface itself; above 0 the
  // surface is smoothed by that many pixels and evaluated as it is then, which costs a tenth of a pixel and more of
  // accuracy. `peak`: height of the correlation, 0.25 for a perfect match. `pocImage` receives the surface, zero
  // shift at the middle.
  int CalcShiftByPOC(CVynImage* frame, CVynImage* pocImage, double sigma, CRect* pRect, double& dx, double& dy,
                     double& peak, int& failWidth, int& failHeight, int bProgress);
  // `angle` in degrees, known up to half a turn, short of the truth by 0.8 percent or so (measured: 0.08 at 10
  // degrees); the scale of the two frames may differ by some 20 rows of the log-polar spectrum. `logPolarA`,
  // `logPolarB` receive the log-polar spectra.
  int CalcRotByRIPOC(CVynImage* frame, CVynImage* logPolarA, CVynImage* logPolarB, CRect* pRect, double& angle,
                     int& failWidth, int& failHeight, int bProgress);
  // An experiment that was never finished: `angle` is always 0.
  int CalcRotByRIPOC_1D(CVynImage* frame, CVynImage* spectrumImage, CVynImage* pocImage, CRect* pRect, double& angle,
                        int& failWidth, int& failHeight, int bProgress);
  // Transforms every plane of the object, with `imaginaryIn` (may be null) as the imaginary part, and stores the two
  // parts in `out0`, `out1`. `reImMode` 0: amplitude and phase with zero frequency in the middle, in the outputs of
  // a forward and the inputs of an inverse transform; otherwise real and imaginary part. `window` non-zero applies
  // the window first. A null rectangle gives 0.
  int Do(int inverse, int reImMode, int window, CVynImage* imaginaryIn, CVynImage* out0, CVynImage* out1, CRect* pRect,
         int bProgress);
  // Resamples every plane to log radius (rows, from a sixteenth of the height) and angle (columns, 0 to 180 degrees).
  // A null rectangle gives 0.
  int DoLogPolar(CVynImage* out, CRect* pRect, int applyLog, int bProgress);

 private:
  // Loads a plane into an array of `height` rows at the given stride; null for the imaginary image is 0.
  void PutImage(CVynImage* image, CVynImage* imaginary, int plane, dcomplex* data, int stride, int height);
  // Loads a rectangle, packed at its own width, into the array that a rectangle of this size gets.
  void PutImage(CVynImage* image, CVynImage* imaginary, int plane, dcomplex* data, CRect* pRect);
  // Stores the parts of an array of `height` rows; either image may be null.
  void GetImage(CVynImage* real, CVynImage* imaginary, int plane, dcomplex* data, int stride, int height);
  // Plane 0 of the object and of the frame into a new engine; 0 with the sizes when it can't be had.
  int LoadPair(CFftd& engine, CVynImage* frame, CRect* pRect, int& failWidth, int& failHeight);
  // The loaded arrays become the log-polar amplitude spectra of the windowed frames.
  void LogPolarSpectra(CFftd& engine, int startRadius);
};
