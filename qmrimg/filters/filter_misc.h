// Corrective filters: hot pixels, background, false colour, guiding errors; a kernel of the user's own; contours.
#pragma once

#include "qmrimg/image/vyn_image.h"

namespace qmr {
struct SharpenLimits;
}

// The object is the destination, `source` the image read, which may be the object itself; without a source nothing
// happens. Only rows, columns and, but for contours, planes that both have are written. Arrays have one entry a plane
// of this image and belong to the caller. Values are on the raw scale unless told otherwise. Windows that reach beyond
// the image repeat its first and last column and mirror its rows, without the end rows (background: with the last
// one). A radius whose kernel can't be had raises the memory exception.
class QMR_API CImgFilterMisc : public CVynImage {
 public:
  CImgFilterMisc();
  ~CImgFilterMisc() override;

  // Replaces hot and cool pixels by the median of the disc of `radius` pixels, where the pixel differs from it by more
  // than a threshold: |median / pixel - 1|, a fraction of the pixel itself. A pixel of 0 is infinitely far from any
  // other median.
  void NoiseCut(double radius, int coolOn, double coolThreshold, int hotOn, double hotThreshold, CVynImage* source,
                CRect* pRect, int bProgress);
  // Element `rank` of the sorted disc of `radius` pixels: 0 for the minimum, GetMinMaxFilterNmax(radius) - 1 for the
  // maximum. A rank that the disc does not have gives 0.0.
  void MinMaxFilter(double* radius, int* rank, CVynImage* source, CRect* pRect, int bProgress);
  // How many pixels that disc has: 5 for a radius of 1, 13 for 2.
  int GetMinMaxFilterNmax(double radius);

  // Removes hot and cool pixels of an undeveloped frame of one plane; anything else than one plane stays as it is. A
  // pixel is compared with the four nearest of its own colour: one below them all by more than `coolThreshold` becomes
  // the lowest of them, one above them all by more than `hotThreshold` the highest, both only if CompareArea says so
  // as well. Thresholds are relative to the pixel: |neighbour / pixel - 1|. `pattern` is the layout of the colour
  // filters: 1 to 4 Bayer, 11 to 14 honeycomb (whose empty positions stay as they are); others do nothing. The layout
  // begins at even columns and rows (honeycomb: every fourth row) of the image, wherever the rectangle lies.
  void CFANoiseCut(int pattern, int coolOn, double coolThreshold, int hotOn, double hotThreshold, CVynImage* source,
                   CRect* pRect, int bProgress);
  // The second opinion on a pixel: compares the mean of the ring around it with that of the next ring, in plane 0,
  // mirrored at the edges. Non-zero when the pixel may be replaced: |near / far - 1| > threshold for a cool one, and at
  // most 1 - threshold for a hot one. So a lone cool pixel on a flat frame stays, on purpose. `pattern` from 11 on
  // reads the positions of a honeycomb frame, else all. 0 without float pixels.
  int CompareArea(CVynImage* source, int x, int y, int pattern, int bHot, double threshold);
  // Smooths what is not above `level` by a Gaussian of sigma `radius` pixels; the result does not rise above the level.
  // Over the width `buffer` below it (256-scale of the object) the smoothing fades out. `kernelType` 0 and 1 give the
  // same results, and `weight` has no effect, on purpose; any other kind changes nothing and leaves the report open.
  // Planes beyond the third stay as they are. Kernel and source stay in the object's engines: a second call uses those
  // of the first until ClearFilterProc.
  void BkgSmooth(double* level, double* buffer, int kernelType, double* radius, double weight, CVynImage* source,
                 CRect* pRect, int bProgress);
  // Takes a false colour back, as of the blue haloes of lenses. The three numbers are its red, green and blue: pixels
  // whose ratios green to red and blue to red differ from its ratios by less than `tolerance` (relative) get the mean
  // of the other two channels in the channel that is largest in it, the first of equal ones. `strength` 0 keeps the
  // pixels, 1 replaces them. Does nothing on images of fewer than three planes, and to no pixel when its red or that of
  // the colour is 0.
  void FalseColorCut(int ratioR, int ratioG, int ratioB, double tolerance, double strength, CVynImage* source,
                     CRect* pRect, int bProgress);
  // Sharpens along the direction in which stars are trailed: subtracts the pixels of a line that reaches `length`
  // pixels, rounded up, to either side, at `angle` degrees clockwise from the vertical (90 runs along the rows). What
  // the pixel itself counts is multiplied by `weight`; see CFilterMatrix::SetLine. `mix` 0 copies, 1 gives the
  // filtered pixel.
  void GuideErrorCanceller(double length, double angle, double weight, double mix, CVynImage* source, CRect* pRect,
                           int bProgress);
  // Convolution with a kernel of (2 * radius + 1)^2 values, row by row, neither flipped nor normalised. The full forms
  // take the limits of the sharpening filters, on the 256-scale of the source: from `min` (where `minOn` is set) to
  // `max` pixels are filtered fully, over `minBuf` below and `maxBuf` above the filter fades, beyond they are copied;
  // where `brighterOn` is set, no pixel gets darker (a negative `brighter` / 100 is the share by which darkening is
  // increased instead). The ramps act first, the limit on darkening on their result. Planes with a negative radius or
  // without a kernel stay as they are.
  void Custom(int radius, double* kernel, CVynImage* source, CRect* pRect, int bProgress);
  void Custom(int radius, double* kernel, int minOn, double min, double minBuf, int maxOn, double max, double maxBuf,
              int brighterOn, double brighter, CVynImage* source, CRect* pRect, int bProgress);
  void Custom(int* radius, double** kernel, int* minOn, double* min, double* minBuf, int* maxOn, double* max,
              double* maxBuf, int* brighterOn, double* brighter, CVynImage* source, CRect* pRect, int bProgress);
  // Draws lines in all planes where the brightness passes from one of `levels` equal steps of 0..255 on the 256-scale
  // of the source to another; fewer than 2 count as 2. `bNoClamp` non-zero goes on with steps beyond 0..levels. Flat
  // areas give the LevelMin of each plane of the object; lines stand above it by up to 16 steps of 28.3 on its
  // 256-scale.
  void ContourFilter(int levels, int bNoClamp, CVynImage* source, CRect* pRect, int bProgress);

 private:
  // `limits` has an entry a plane; null filters all pixels.
  void Convolve(const int* radius, const double* const* kernel, const qmr::SharpenLimits* limits, CVynImage* source,
                CRect* pRect, int bProgress);
};
