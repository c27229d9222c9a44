// The fast Fourier engine: unscaled forward, on all threads, with phase-only correlation.
#pragma once

#include <cstddef>
#include <memory>

#include "qmrimg/platform/export.h"
#include "qmrimg/store/block.h"

class CVynImage;

namespace qmr {
class FftPlan;
}

// An element of CFftd's arrays: two floats, in spite of the name.
struct dcomplex {
  dcomplex() = default;
  dcomplex(float real, float imaginary) : re(real), im(imaginary) {}
  float re = 0.0f;
  float im = 0.0f;
};

// Two arrays of complex elements, array 0 (A) and array 1 (B), row-major, with sizes that are powers of two. `which`
// selects the array; any other value makes an operation do nothing.
//
// Forward is exp(+2 pi i j k / N) without a scale, inverse the opposite sign with a division by N on every line.
// Results are the same bits for every number of threads. Operations advance the report of the progress image, if one
// is set, by one unit a row or column.
class QMR_API CFftd {
 public:
  CFftd();
  CFftd(const CFftd&) = delete;
  CFftd& operator=(const CFftd&) = delete;
  virtual ~CFftd();

  // Raises each size to a power of two and clears both arrays; 0 when the memory can't be had or a size is below 1.
  int Create(int width, int height);
  void Init();
  int GetWidth() const { return width; }
  int GetHeight() const { return height; }
  // The arrays, owned by this object; null before Create.
  dcomplex* GetImageAdr() const { return arrayA; }
  dcomplex* GetImageAdrA() const { return arrayA; }
  dcomplex* GetImageAdrB() const { return arrayB; }
  // The image whose report is advanced; null for none. Not owned.
  void SetProgressImg(CVynImage* image) { progressImage = image; }

  // 0 forward, 1 inverse. The result is 0 in every case.
  int Do(int direction, int which);
  // Transforms each row by LineFFT, then stores its element j at the linear index y + j (height + 1), as far as that
  // lies in the array: an experiment that was never finished, kept for CalcRotByRIPOC_1D.
  int Do1D(int direction, int which);
  // One line of N elements in place, N a power of two (others stay as they are); the bits are those of Do. Returns
  // the line. Not for several threads at once.
  dcomplex* LineFFT_SR(dcomplex* line, int N, int direction);
  // The same with the opposite sign of the exponent.
  dcomplex* LineFFT(dcomplex* line, int N, int direction);

  // Moves the zero frequency between corner and centre; SwapX along rows only.
  void Swap(int which);
  void SwapX(int which);
  // Multiplies by 0.5 cos(pi d / R) + 0.5 of the distance d from the centre, R half the shorter side; 0 from R on.
  void Windowing(int which);
  // Amplitude in the real place and phase (radians) in the imaginary one, zero frequency in the centre; and back.
  void ToAmpPhase(int which);
  void ToReIm(int which);
  // Resamples the real part of a centred spectrum to rows of log radius and columns of angle (degrees), in place, from
  // radius startRadius + 1 to the truncated half of the shorter side (`useShortSide` non-zero) or diagonal, less 0.5.
  // `applyLog` non-zero takes log(v + 1) first, v counted from the minimum if that is not above 0.
  void ToLogPolar(int startRadius, int useShortSide, int startAngle, int endAngle, int applyLog, int which);
  // The real (`part` 0) or imaginary component of an array of this size at a position: `mode` 0 nearest, 1 bilinear,
  // 0.0 for any other. Positions outside read the border.
  double Interp(dcomplex* data, int part, int mode, double x, double y) const;

  // A becomes the normalised cross spectrum conj(A) B / |A B| of the frequencies below a quarter of the sampling rate
  // (along both axes, CalcPOC1D: along x), 0 elsewhere.
  void CalcPOC();
  void CalcPOC1D();
  // The peak of the correlation surface in A (inverse transform and Swap done): at the pixel given, or else the
  // highest value above 0. `dx`, `dy`: minus the peak's position from the centre, to a fraction of a pixel, as
  // compositing takes it; `peak`: the value of the pixel, 0.25 for a perfect match.
  void PeakOfPOC(const int* peakX, const int* peakY, double& dx, double& dy, double& peak);
  // The unfinished companion of Do1D: `dx` comes out as 0.
  void PeakOfPOC1D(double& dx);
  // The same on one row of A, complete.
  void PeakOfPOC1D(int row, double& dx);
  // Fits the peak at a pixel: the position is width / 2 - `outX`, height / 2 - `outY` from the centre. `outY` is left
  // alone unless `twoDimensional`.
  void SubPixPeakPEF(int x, int y, int twoDimensional, double& outX, double& outY);
  // The terms of that fit at pixel (x, y) for the distance i, along x or along y.
  double u(double alpha, int x, int y, int i, int alongX);
  double v(double alpha, int x, int y, int i, int alongX);
  void DebugOut(int) {}

 private:
  friend class CImgFourier;

  dcomplex* Array(int which) const { return which == 0 ? arrayA : which == 1 ? arrayB : nullptr; }
  float* Row(dcomplex* data, int y) const { return &data[static_cast<std::ptrdiff_t>(y) * width].re; }
  void SetFlag(int which, int isAmp) { (which == 0 ? isAmpA : isAmpB) = isAmp; }
  // Prepares the line transform for a length; may raise std::bad_alloc.
  const qmr::FftPlan& MakeTableSR(int N);
  dcomplex* Line(dcomplex* line, int N, int direction, bool forwardPlus);
  // ToAmpPhase; without `phase` the imaginary parts become 0.
  void ToAmp(int which, bool phase);

  int width = 0;
  int log2Width = 0;
  int height = 0;
  int log2Height = 0;
  CVynImage* progressImage = nullptr;
  dcomplex* arrayA = nullptr;
  dcomplex* arrayB = nullptr;
  int isAmpA = 0;
  int isAmpB = 0;
  qmr::Block blockA_;
  qmr::Block blockB_;
  std::unique_ptr<qmr::FftPlan> plan_;
};
