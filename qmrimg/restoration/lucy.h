// Richardson-Lucy restoration of an image that a Gaussian has blurred.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgLucy : public CVynImage {
 public:
  CImgLucy();
  ~CImgLucy() override;

  // Sharpens the rectangle of every plane of this image in place, with a round Gaussian of `sigma` pixels (a 64 x 64
  // array) as point-spread function and the turbo steps of LucyRestore: at most `iterations` of them, fewer once the
  // reduced chi-square is down to 1.0. Pixels count on the raw scale: `gain` electrons a unit, `readNoise` in
  // electrons; pixels more than five sigma of the read noise below zero are left out.
  //
  // A null rectangle, or one that covers the image, is the whole image. Gives 1, or 0 for a rectangle that leaves the
  // image, for an image of other than float pixels, for lack of memory within the solver (message box 6148) and after
  // Esc (message box 6149). With 0 and with an exception the image is as it was: nothing is written before the last
  // plane is done. Lack of memory for the copy of the planes or for the point-spread function throws the memory
  // exception. An empty or reversed rectangle inside the image gives 1 and changes nothing.
  //
  // Rectangles narrower than the 64 columns of the point-spread function are not for restoration: the first estimate
  // leaves their last (64 - width) / 2 columns at 0, where they stay.
  //
  // With `bProgress` 0 nothing is reported and Esc isn't looked for.
  int Do(double sigma, double gain, double readNoise, int iterations, CRect* pRect, int bProgress);
};
