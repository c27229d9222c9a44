// Restoration by maximum entropy.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Sharpens an image blurred by a Gaussian: of all images that explain the data within their noise (a chi-square of
// one a pixel), the one that says least. Noise is not amplified where the data carry no signal, and nothing falls
// below zero. After Skilling, J. and Bryan, R. K. (1984), MNRAS 211, 111, with conjugate directions.
//
// Pixels are taken on the raw scale. The run stops when a step is small on that scale, half a unit (see MemRestore):
// pictures whose values span less than some hundred units, 0 .. 1 above all, have to be scaled up before, with
// `noise`, and down afterwards. 16-bit values are right as they are.
class QMR_API CImgMem : public CVynImage {
 public:
  CImgMem();
  CImgMem(const CImgMem& src);
  ~CImgMem() override;
  CImgMem& operator=(const CImgMem& src);

  // Restores this image in place, plane after plane. `sigma` is the Gaussian's in pixels, above 0 and best 1 to 10: a
  // narrower one is undersampled, and the point-spread function is cut to 63 x 63. `noise` is the standard deviation
  // of a pixel, raw scale. At most `iterations` are run, of 4 transforms each, now and then 6; 0 or less leaves the
  // end to the size of the steps. 20 to 50 will do.
  // `pRect` null or the whole image: everything; pixels outside stay. 1 on success, also for an empty rectangle.
  // 0 with the image unchanged: a rectangle that leaves the image (silently); Esc in the progress window, which shows
  // message 6149; memory that gives out during the run or a `sigma` without a point-spread function, which show
  // message 6148. Memory that gives out before the run raises the memory exception.
  int Do(double sigma, double noise, int iterations, CRect* pRect, int bProgress);

 private:
  // A new Gaussian of sum 1, to be deleted by the caller; null without memory.
  float* MakeGauss(double sigma, int width, int height);
};
