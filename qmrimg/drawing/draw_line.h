// A straight line on an image.
#pragma once

#include "qmrimg/image/vyn_image.h"

class QMR_API CImgDrawLine : public CVynImage {
 public:
  CImgDrawLine();
  ~CImgDrawLine() override;

  // Draws the line from `from` to `to`, both included, in `colour` 0x00BBGGRR: a byte of 0 is the minimum of the
  // plane's levels, 255 the maximum. A monochrome image, and one of two planes, takes the middle of the greatest and
  // the smallest byte; its second plane, and those behind the third, stay. Of the line's pixels (Bresenham 1965) those
  // inside the image are drawn; the ends may lie anywhere.
  void Do(CPoint from, CPoint to, unsigned long colour);

 private:
  void DoMono(CPoint from, CPoint to, unsigned long colour);
  void DoColor(CPoint from, CPoint to, unsigned long colour);
  // `pixel(x, y)` for each pixel of the line that lies inside the image.
  template <class Pixel>
  void Trace(CPoint from, CPoint to, const Pixel& pixel) const;
  void DrawPixel(int x, int y, float v);
  void DrawPixel(int x, int y, float r, float g, float b);
  static bool ContinueLoop(int i, int end, int step);
};
