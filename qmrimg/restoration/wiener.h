// Deconvolution of a Gaussian blur by one division in the frequency domain.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Wiener's filter: with O the transform of the blur and N the transform's size, each frequency is multiplied by
// conj(O) / (|O|^2 + strength * max|O|^2), so that `strength` is the noise-to-signal power ratio at the peak of the
// blur. 0 divides bare: frequencies that the blur has taken away entirely become infinite or not-a-number.
//
// `sigma` in pixels is sqrt(2) times the standard deviation of the blur: pass 1.414213562 * FWHM / 2.3548 for stars
// of that FWHM. 0 leaves not-a-number everywhere; the sign doesn't matter.
//
// Brightness changes, on purpose: existing settings of hosts count on it. With the sizes W and H of the transform (of
// each side the next power of two) the level minimum of a plane stays where it is, and what lies above it is
// multiplied, at frequency zero, by WienerGain: about sqrt(W * H) / (500 * sigma^2 * (1 + strength)). A host that
// wants to keep sky and flux divides (pixel - level minimum) of the result by it.
//
// Where the transform is larger than the image, the image is continued by its mirror; beyond, the transform is
// cyclic: the left border meets the mirrored right one. Not-a-number anywhere in a plane spreads over all of it.
class QMR_API CImgWiener : public CVynImage {
 public:
  CImgWiener();
  CImgWiener(const CImgWiener& other);
  ~CImgWiener() override;
  CImgWiener& operator=(const CImgWiener& other);

  // In place, raw scale through the 256-scale of each plane's levels. A rectangle as large as the image, wherever it
  // lies, is the whole image; another one is cut to the image and filtered by itself, with a transform of its own
  // size. 0, with the image as it was, when memory lacks or nothing of the rectangle lies in the image; otherwise 1.
  int Do(double sigma, double strength, CRect* pRect, int bProgress);
};

namespace qmr {

// The gain of CImgWiener at frequency zero for an image (or rectangle) of this size. Not-a-number or infinite where
// the filter is so; 0 for a size below 1.
QMR_API double WienerGain(double sigma, double strength, int width, int height);

}  // namespace qmr
