// Correlation of two planes by their spectra, for the coarse steps.
#pragma once

#include <cstddef>
#include <vector>

#include "qmrimg/platform/exception.h"
#include "qmrimg/stacking/fftd.h"

namespace qmr {

// A place where two planes fit: the second shows at x + shift what the first shows at x. The height is in units of
// the surface's own scatter.
struct CorrelationPeak {
  double x = 0.0;
  double y = 0.0;
  double height = 0.0;
};

// Row after row.
using Spectrum = std::vector<dcomplex>;

// An engine with its arrays; one object a thread. Sizes are powers of two. Within a parallel region over frames the
// engine works on the calling thread alone.
class PhaseCorrelator {
 public:
  PhaseCorrelator(int width, int height);

  // The two planes of a pair travel as real and imaginary part of one transform. Planes are width * height floats;
  // `second` may be null, then its spectrum is empty.
  void Transform(const float* first, const float* second, Spectrum& firstSpectrum, Spectrum& secondSpectrum);

  // Fills two correlation surfaces: `a` with `b`, and `c` with `d`. Each cross spectrum is divided by its magnitude
  // plus the mean magnitude: strong frequencies count by phase alone, those of noise fade out.
  void Correlate(const Spectrum& a, const Spectrum& b, const Spectrum& c, const Spectrum& d);

  // The highest peaks of surface 0 or 1 within `reach` of zero shift in either axis (0: anywhere), the highest first,
  // refined to a fraction of a pixel.
  std::vector<CorrelationPeak> Peaks(int surface, int count, int reach) const;

 private:
  float At(int surface, int x, int y) const {
    const dcomplex& z =
        engine_.GetImageAdrA()[static_cast<std::size_t>(y & (height_ - 1)) * static_cast<std::size_t>(width_) +
                               static_cast<std::size_t>(x & (width_ - 1))];
    return surface == 0 ? z.re : z.im;
  }

  int width_;
  int height_;
  std::size_t count_;
  CFftd engine_;
  Spectrum cross_[2];
};

}  // namespace qmr
