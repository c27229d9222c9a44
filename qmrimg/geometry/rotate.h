// Rotation.
#pragma once

#include "qmrimg/image/vyn_image.h"

// The source has this image's size on entry and may be this image; what it lacks stays as it is (the new canvas starts
// as 0). Null sources do nothing, with the result 0.
class QMR_API CImgRotate : public CVynImage {
 public:
  CImgRotate();
  ~CImgRotate() override;

  // Turns the picture by `angle` degrees about the pixel (width / 2, height / 2), integer halves: clockwise as seen
  // with row 0 on top. `expand` non-zero: the canvas becomes as large as the turned picture needs; 0: it stays and the
  // corners are cut. `method` is one of CInterp. `color` holds red, green and blue from the lowest byte up, on the
  // 256-scale of this image's plane 0: a colour image takes red for all its planes, on purpose, a monochrome one the
  // brightness.
  //
  // Exactly 0 degrees copies the source, whatever `expand` says. Otherwise the reference points are unset and the
  // centre is (old width / 2, old height / 2) afterwards. Levels stay. The source's own centre is in use during the
  // call and restored. 0 when memory lacks or nothing would be left of the picture.
  int Do(double angle, unsigned long color, CVynImage* source, int expand, int method, int bProgress);

  // A copy of the pixels.
  void Do0(CVynImage* source, int bProgress);
  // Upside down, pixel by pixel.
  void Do180(CVynImage* source, int bProgress);
  // A quarter turn as seen with row 0 on top, pixel by pixel: `clockwise` non-zero makes column 0 the top row, from its
  // lower end on; 0 makes the last column the top row. The levels become the source's; the reference points and the
  // centre are unset. 0 when memory lacks.
  int Do90(int clockwise, CVynImage* source, int bProgress);

 private:
  int Quarter(int clockwise, CVynImage* source, int bProgress);
};
