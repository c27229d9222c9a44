// Joins two images on a larger canvas.
#pragma once

#include "qmrimg/image/vyn_image.h"

// The object is the canvas; a host grows a mosaic frame by frame.
class QMR_API CImgMosaic : public CVynImage {
 public:
  CImgMosaic();
  ~CImgMosaic() override;

  // Fills the pixels of `pRect`. `base` lies on the canvas with its top left pixel at (originX, originY), `addition`
  // moved by (originX + shiftX, originY + shiftY) pixels and turned about its StdCtr, which the caller has set, by
  // `angle` degrees, clockwise where row 0 is at the top; both are read bilinearly. A pixel that one of them covers
  // takes that one's value; where both do, `overlapMode` decides:
  //
  //   0          the addition
  //   1          the addition, but the base where the addition shows `maskColor`
  //   2, 3       the brighter, the darker one; of a colour canvas all planes go by the luminance
  //   any other  the base
  //
  // `average` non-zero takes the mean of both everywhere, covered or not. What neither covers is 0.
  // `to256` non-zero: each image is read on its own 256-scale, and the result has the levels of this image;
  // uncovered pixels are then outsideColor[0] on the 256-scale, on every plane.
  // `maskColor` has one raw value a plane of this image, by whose levels it is read: a pixel shows it when they differ
  // by less than a 256th of the level range of plane 0 (with `to256` by less than 1), on colour in the sum over three
  // planes. Null arrays count as zeros.
  //
  // A canvas of fewer than three planes has its plane 0 filled, from brightness where an image has colours; on a
  // colour canvas a monochrome image counts as gray. This image may be `base` or `addition`, which are read as they
  // were before the call. Without either nothing happens.
  void Do(CVynImage* base, int originX, int originY, CVynImage* addition, double shiftX, double shiftY, double angle,
          int overlapMode, float* const maskColor, float* const outsideColor, int to256, int average, CRect* pRect,
          int bProgress);
};
