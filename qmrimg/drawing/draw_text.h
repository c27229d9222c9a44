// A line of text on an image.
#pragma once

#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/font.h"

class QMR_API CImgDrawText : public CVynImage {
 public:
  CImgDrawText();
  ~CImgDrawText() override;

  // Fills this image with the pixels of `src`, which may be this image, and writes `text` over them with the top left
  // of its first letter's cell at `pos`; what lies outside the image is cut off. 1 when done; 0, with the image
  // as it was, when `src` or `font` is null, the system has no font to draw with, or the text would be wider or higher
  // than can be had (64 million dots). A lack of memory raises the memory exception.
  //
  // `colour` is 0x00BBGGRR and reaches its full byte on the levels of this image: 0 the minimum of the plane's levels,
  // 255 the maximum. A monochrome image, and one of two planes, takes the middle of the greatest and the smallest byte.
  // The second of two planes, and those behind the third, stay as they are.
  // The pixels of `src` pass through the 256-scale of its levels, so that they may differ in their last bit from what
  // they were where its levels aren't 0 and 255.
  //
  // `bSmooth` non-zero draws at twice the size and takes 2 by 2 dots together, so that edges are covered by quarters;
  // the last of an odd number of rows or columns is dropped. A font of height 0 has its default size before that, so
  // that it comes out half as large. Otherwise a pixel is covered or not.
  //
  // The text is one line in logical order without kerning; control characters count as blanks. An empty text leaves
  // the pixels of `src`, result 1. Characters that the font lacks are taken from others that are installed.
  int Do(CVynImage* src, CPoint pos, const CString& text, LOGFONTW* font, unsigned long colour, int bSmooth);
};
