// A colour image from three frames.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Each plane of this image comes from a frame of its own: from its plane 0, 1 or 2 when the frame is colour, else from
// its only plane. A frame has a shift in pixels and an angle in degrees: the result at (x, y) reads the frame at
// (x - dx, y - dy), turned about the frame's StdCtr, or about its middle with useImageCenter 0. `method` is a number of
// CInterp.
//
// The object has the wanted size and three planes; with fewer nothing happens. Pixels stay on the raw scale of their
// frame and are 0.0 where the frame does not reach; levels are taken over from the frame. Frames may be the object.
class QMR_API CImgRgbCmpst : public CVynImage {
 public:
  CImgRgbCmpst();
  CImgRgbCmpst(const CImgRgbCmpst& src);
  ~CImgRgbCmpst() override;
  CImgRgbCmpst& operator=(const CImgRgbCmpst& src);

  // `enable`, three flags or null for all, names the planes whose pixels are written; levels are set in all of them. A
  // frame may be null where its plane is not written (the levels of that plane stay), otherwise nothing happens.
  void Do(CVynImage* red, double redDx, double redDy, double redAngle, CVynImage* green, double greenDx, double greenDy,
          double greenAngle, CVynImage* blue, double blueDx, double blueDy, double blueAngle, int useImageCenter,
          int method, CRect* pRect, int* enable, int bProgress);
};
