// Composites of two images.
#pragma once

#include "qmrimg/image/vyn_image.h"

// Combines two images pixel by pixel into this one: A as it stands, and B shifted and turned so that it lies over A.
// The result at (x, y) reads B at (x - shiftX, y - shiftY); `shiftX` and `shiftY` are pixels as
// CImgFourier::CalcShiftByPOC gives them, `angle` is in degrees.
//
//   mode                          result
//   0     average                 (B + A) * 0.5
//   1     add                     B + A
//   2     weighted                (1 - ratio) * A + ratio * B
//   3     subtract                A - B; with `clipNegative` not below 0
//   4     multiply                256-scale: A * (B limited to 0..255) / 255; raw: A * B
//   5     divide                  256-scale: A / ((B limited to 0.001..255) / 255); raw: A / B, a B of 0 counts as 1
//   6     difference              |A - B|
//   7, 8  brighter, darker        the larger, the smaller of the two
//   9     minimum                 the smaller of A and B * ratio, in doubt what suits the pixels around: see below
//   above 9                       A, always by way of the 256-scale; a negative number: A
//
// `to256` non-zero: both pixels are taken to the 256-scale by their own image's levels, the result goes back by A's
// (mode 9: by this image's). Zero: raw values. Where B does not reach, it counts as 0.0, in modes 4 and 5 as 255.0
// on both scales: an average darkens there, a product on the 256-scale leaves A as it is.
//
// Mode 9 keeps the stars of frames with unlike saturation, plane by plane. `threshold` is the saturated share of 255
// on the 256-scale (above it), or of GetMaxPixel(0) of each image as CalcMinMax left it on the raw scale (from it on;
// without CalcMinMax that is 0). `neighbor`, 0 or a radius of at most 2, tells how far around a saturated pixel makes a
// pixel doubtful. B is turned about its StdCtr by an angle that folds back beyond 90 degrees. Where B does not reach,
// or comes within a pixel of its edge, A stays.
//
// This image must have the size and the planes of A beforehand, as copying A makes it; of other shapes only what all
// have in common is written. It may be A, or B, whose pixels are then copied first. Colour A takes a B of one plane
// for all three planes, A of one plane takes the brightness of a colour B (mode 9: its plane 0). `pRect` is clamped to
// this image. Of two planes the first is written, of more than three the first three, in mode 9 all. `messageId` -1 is
// the composite's own text. Null images: nothing happens. A lack of memory raises the memory exception. Runs on all
// threads.
class QMR_API CImgComposit : public CVynImage {
 public:
  CImgComposit();
  ~CImgComposit() override;

  // `useImageCenter` non-zero turns B about its StdCtr, zero about half its size. `method` is a number of CInterp.
  void Do(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int useImageCenter, int mode,
          int method, double ratio, int to256, int clipNegative, double threshold, int neighbor, CRect* pRect,
          int bProgress, int messageId);
  // With ratio 0.5, no clipping, threshold 0.95, neighbor 0, the whole image and no report.
  void Do(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int useImageCenter, int mode,
          int method, int to256);

  // The older path: always bilinear in single precision and about the StdCtr of B. Its last column on a shift by
  // fractions reads the pixel before it in place of the one behind.
  void Do65(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int mode, double ratio, int to256,
            int clipNegative, double threshold, int neighbor, CRect* pRect, int bProgress, int messageId);
  void Do65(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int mode, int to256);
  // Mode 9 of Do65, whatever `mode` says; callers use Do65.
  void Abr(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int mode, double ratio, int to256,
           int clipNegative, double threshold, int neighbor, CRect* pRect, int bProgress, int messageId);

 private:
  // What the rows of B for Do65 are made from.
  struct BLine;

  void DoComposit(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int useImageCenter, int mode,
                  int method, double ratio, int to256, int clipNegative, double threshold, int neighbor, CRect* pRect,
                  int bProgress, int messageId);
  void DoComposit(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int mode, double ratio,
                  int to256, int clipNegative, double threshold, int neighbor, CRect* pRect, int bProgress,
                  int messageId);
  void DoNbrComposit(CVynImage* a, CVynImage* b, double shiftX, double shiftY, double angle, int mode, int method,
                     double ratio, int to256, int clipNegative, double threshold, int neighbor, CRect* pRect,
                     int bProgress, int messageId);

  // One row of B at its row `y`, up to three lines.
  void GetBLine_int(BLine& from, int y, float* const* lines) const;
  void GetBLine_float(BLine& from, float y, float* const* lines) const;
  void GetBLine_rotate(BLine& from, float y, float* const* lines) const;
  // The value of B where it does not reach.
  double GetOutsideValue(int mode) const;
};
