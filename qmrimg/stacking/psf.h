// Widths of stars.
#pragma once

#include <vector>

#include "qmrimg/image/vyn_image.h"

// Collects the widths of stars of an image and gives their mean or median. Widths are full widths at half maximum in
// pixels, kept in the library's own form, psf = sqrt(fwhm) * 0.4246609. Means and medians are formed in that form, on
// purpose: hosts compare its numbers, and the mean FWHM is not the mean of the FWHMs.
//
// A star is read on the mean of the planes, raw scale, along the row and the column through its brightest pixel, with
// straight lines between pixels. Of a Gaussian star integrated over square pixels, the mean over all places within a
// pixel is too wide by 0.47 px at an FWHM of 1 px, 0.25 at 2, 0.18 at 3, 0.13 at 4 and 0.07 at 8.
//
// Every failure is a result of 0. One object serves one thread at a time; the image is only read and must outlive it.
class QMR_API PSF {
 public:
  // `image` stays the caller's; null: nothing can be added. Widths of `Max` pixels and more, a setting of section
  // `Psf` (20.0), are no stars.
  explicit PSF(CVynImage* image);
  PSF(const PSF&) = delete;
  PSF& operator=(const PSF&) = delete;
  virtual ~PSF();

  // Climbs from a pixel to the nearest peak and stores the width found there: 1. It gives 0, and stores nothing, for
  // a pixel outside the image; where no background is found (it is looked for behind the first rise on each side:
  // two pixels further, twelve pixels, the upper median of all); for a peak that is not above it; and when the half
  // level is not reached within the image.
  int Add(CPoint pt);
  int GetCount() const { return count; }

  // 1 and the value, or 0, with nothing stored, when there is none between 1e-6 and the greatest width (a limit in
  // pixels that applies to the PSF form here, on purpose). The median is the upper middle of an even count; finding it
  // sorts the list.
  int GetMeanPSF(double* value);
  int GetMedianPSF(double* value);
  int GetMeanFWHM(double* value);
  int GetMedianFWHM(double* value);

  // Between an FWHM in pixels and the form above.
  double FwhmToPsf(double fwhm) const;
  double PsfToFwhm(double psf) const;

 protected:
  CVynImage* image;
  std::vector<double> values;
  int count = 0;
  double maxWidth = 20.0;

 private:
  CPoint ClimbToPeak(CPoint pt) const;
  int GetBase(CPoint peak, double* base) const;
  int GetFWHM(CPoint peak, double base, double* fwhm) const;
  double GetPixelValue(CPoint pt) const;
  bool Inside(CPoint pt) const;
};
