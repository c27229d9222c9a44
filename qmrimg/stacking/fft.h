// The Fourier engine with the same scale forward and backward, on the calling thread.
#pragma once

#include <cstddef>

#include "qmrimg/platform/export.h"
#include "qmrimg/store/block.h"

// An element of CFft's arrays. Not std::complex: its parts are plain floats that callers load and read.
struct complex {
  complex() = default;
  complex(float real, float imaginary) : re(real), im(imaginary) {}
  float re = 0.0f;
  float im = 0.0f;
};

// Two arrays of complex elements, array 0 (A) and array 1 (B), row-major, with sizes that are powers of two. `which`
// selects the array; any other value makes an operation do nothing.
//
// Forward is exp(-2 pi i j k / N), inverse the opposite sign, each line divided by sqrt(N) in both directions.
class QMR_API CFft {
 public:
  CFft();
  CFft(const CFft&) = delete;
  CFft& operator=(const CFft&) = delete;
  virtual ~CFft();

  // 2 to the power of the upper, lower whole number of log(n) / log(2), in double; 0 for n below 1.
  static int GetCeilPowerOf2(int n);
  static int GetFloorPowerOf2(int n);

  // Raises each size to a power of two and clears both arrays; 0 when the memory can't be had or a size is below 1.
  int Create(int width, int height);
  void Init();
  int GetWidth() const { return width; }
  int GetHeight() const { return height; }
  // The arrays, owned by this object; null before Create.
  complex* GetImageAdr() const { return arrayA; }
  complex* GetImageAdrA() const { return arrayA; }
  complex* GetImageAdrB() const { return arrayB; }

  // 0 forward, 1 inverse. The result is 0 in every case.
  int Do(int direction, int which);
  // Multiplies by 0.5 cos(pi d / (width / 2)) + 0.5 of the distance d from the centre; the weight rises again beyond
  // that radius.
  void Windowing(int which);
  // Amplitude in the real place and phase (radians) in the imaginary one, zero frequency in the centre; and back.
  void ToAmpPhase(int which);
  void ToReIm(int which);
  // Resamples the real part of a centred spectrum to rows of log radius and columns of angle (degrees), in place.
  // `useShortSide` non-zero: up to radius width / 2 - 0.5, otherwise width / sqrt(2) - 0.5. `applyLog` non-zero takes
  // log(v) + 1 first.
  void ToLogPolar(int startRadius, int useShortSide, int startAngle, int endAngle, int applyLog, int which);
  // A becomes conj(A) B / |A B|, without a band limit. Both arrays must be in the same form, amplitude and phase or
  // not; otherwise a message box tells.
  void CalcPOC();
  // After the inverse transform: the centre of gravity of the highest peak, measured from the centre, in pixels. The
  // sign is that of the position, opposite to CFftd's.
  void PeakOfPOC(double& dx, double& dy);
  // A becomes A conj(O) / (|O|^2 + eps), with O array A of `other`, as far as both arrays reach.
  void Convolution(CFft* other, double eps);
  // Fills A with a Gaussian about (0, 0) that wraps around, of height 1000 * 0.5 / 3.14159.
  void SetGauss(double sigma);
  // The smallest and largest squared magnitude of A; 0, 0 for an empty array.
  void GetMinMax(double* minimum, double* maximum) const;
  // The real (`part` 0) or imaginary component of an array of this size at a position: `mode` 0 nearest, 1 bilinear,
  // 0.0 for any other. Positions outside read the border.
  double Interp(complex* data, int part, int mode, double x, double y) const;
  void DebugOut(int) {}

 private:
  complex* Array(int which) const { return which == 0 ? arrayA : which == 1 ? arrayB : nullptr; }
  float* Row(complex* data, int y) const { return &data[static_cast<std::ptrdiff_t>(y) * width].re; }
  void SetFlag(int which, int isAmp) { (which == 0 ? isAmpA : isAmpB) = isAmp; }
  // Moves the zero frequency between corner and centre.
  void Swap(int which);

  int width = 0;
  int log2Width = 0;
  int height = 0;
  int log2Height = 0;
  complex* arrayA = nullptr;
  complex* arrayB = nullptr;
  int isAmpA = 0;
  int isAmpB = 0;
  qmr::Block blockA_;
  qmr::Block blockB_;
};
