// Filters for stars and nebulae.
#pragma once

#include "qmrimg/image/vyn_image.h"

namespace qmr {
struct Development;
}

// The object is the destination, `source` the image read, which may be the object itself; without one nothing
// happens. What the source lacks in width, height or planes stays as it is. Pixels are on the raw scale unless said
// otherwise, and results are not limited to the levels. Arrays belong to the caller and have one entry a plane unless
// said otherwise. Radii and sigmas are in pixels; kernels are those of CFilterMatrix, and one too large for memory
// raises the memory exception.
class QMR_API CImgFilterSpecial : public CVynImage {
 public:
  CImgFilterSpecial();
  ~CImgFilterSpecial() override;

  // ---- Digital development --------------------------------------------------------------------------------------
  // The range of brightness is compressed by dividing each pixel by a blurred copy of the image: bright regions are
  // held down by their own surroundings, faint detail keeps its local contrast. On the 256-scale
  // out = k * x / (y + a), x the pixel, y the mask (the blurred pixel), a the offset and k the multiplier. The method
  // is digital development processing (K. Okano, 1990s).
  //
  // In use: set this object's levels, which define the 256-scale of all steps; CalcMinMax of the source; DigitalDvlp1,
  // which makes the masks; then DigitalDvlp2 (gamma curve, then division) or DigitalDvlpGmAftrDdp (division, then
  // gamma curve) on the same object and source. Offsets, multipliers and gammas may be changed between two calls of the
  // second step. Masks of another radius need ClearFilterProc first. DigitalDvlpGetLevel carries display levels along.
  //
  // `gamma` (above 0; 1.0 means none) raises v to 1 / gamma: low + span * ((v - low) / span)^(1 / gamma) above `low`,
  // with low and span from `gammaMin` and `gammaSpan`, raw scale. `offset` and `multiplier` are on the 256-scale. These
  // four have three elements; planes beyond the third keep their pixels.

  // Makes a mask of each plane: `kernelType` 0 a Gaussian of sigma `radius[p]` pixels, 1 a disc of that radius whose
  // centre counts 1 and whose other pixels count `weight` (through its centre row alone, in both directions). Another
  // type: nothing is made, and no output is touched.
  //
  // Fills the four outputs. `minMaxMode` chooses the range of the gamma curve, see DigitalDvlpGetMinMax. The offset is
  // level[0] (raw scale, the only element read) on the 256-scale; the multiplier is offset plus median of the source's
  // plane 0, so that pixels are kept where the mask equals the median. Both go through the gamma curve of plane 0
  // first, unless `gammaAfter` is non-zero.
  void DigitalDvlp1(double* level, int kernelType, double* radius, double weight, double* gamma, int minMaxMode,
                    CVynImage* source, float* gammaMin, float* gammaSpan, float* offset, float* multiplier,
                    int gammaAfter);
  // The gamma curve on pixel and mask, then the division, which leaves pixels undivided where y + a is not above 0.
  // `maskPlane[p]` 0..2 is the plane whose mask divides plane p; from 3 on it is the mean of the three masks, which
  // keeps colours better. Where a mask is missing, and for a negative number, pixels are copied. `develop` 0: the gamma
  // curve alone.
  void DigitalDvlp2(int develop, double* gamma, CVynImage* source, int* maskPlane, float* gammaMin, float* gammaSpan,
                    float* offset, float* multiplier, CRect* pRect, int bProgress);
  // The division, then the gamma curve over the levels, 0..255 of the 256-scale: `gammaMin` and `gammaSpan` are not
  // read. `develop` 0 copies, without the gamma curve.
  void DigitalDvlpGmAftrDdp(int develop, double* gamma, CVynImage* source, int* maskPlane, float* gammaMin,
                            float* gammaSpan, float* offset, float* multiplier, CRect* pRect, int bProgress);
  // The range of the gamma curve, raw scale: from 0 (`minMaxMode` 0), the source's minimum (1, 2) or this object's
  // LevelMin (3) to the source's maximum (0, 1, 3) or its LevelMax (2), all of plane 0. On three planes the same
  // 256-scale values serve planes 1 and 2; in mode 3 their minimum is their own LevelMin. Otherwise, and in other
  // modes, elements stay as they came. `span` is always taken of all three elements. Reads the source's CalcMinMax.
  void DigitalDvlpGetMinMax(int minMaxMode, CVynImage* source, float* min, float* max, float* span);
  // Takes the levels of each plane with a gamma through the curve, in place, raw scale. A low level below the curve
  // stays; a high level above it leaves both as they are.
  void DigitalDvlpGetLevel(double* gamma, int minMaxMode, CVynImage* source, double* levelLow, double* levelHigh);

  // Shrinks stars: each pixel becomes the element at position `rank` of the sorted disc of `radius` pixels. A fraction
  // interpolates between neighbouring elements; positions beyond the disc count as its nearest end. 0 is an erosion,
  // GetStarSharpFilterNum(radius) - 1 a dilation. A result within the fraction `threshold` of the disc's maximum (0:
  // none) leaves the pixel as it is, and so does `keepPeaks` with pixels that equal the maximum. Beyond the image, rows
  // are mirrored and columns clamped. Throws the memory exception for radii above 4000.
  void StarSharpFilter(double* radius, double* rank, double* threshold, int keepPeaks, CVynImage* source, CRect* pRect,
                       int bProgress);
  // How many pixels the disc has: 5 for a radius of 1, 13 for 2.
  int GetStarSharpFilterNum(double radius);

  // ---- Stars and nebulae ----------------------------------------------------------------------------------------
  // All find stars by the response of a pixel: |eight times the pixel less its eight neighbours|. `threshold` is taken
  // literally, on purpose: responses are compared with threshold * 256 / 255 * LevelRange of the source, raw scale. As
  // pixels within their levels give none above eight level ranges, useful values lie between 0 and 8, in practice well
  // below 1. No response is below a threshold of 0 or of not-a-number; one that is not a number is below none.
  // A sigma of 0 does not smooth. Columns beyond the image are those at its edge; rows mirror about both end rows.

  // Finds star-like peaks: Gaussian smoothing of the source limited to its levels (a burnt-out core counts no more than
  // LevelMax), the responses that are not below the threshold, smoothing again. The result g, times `gain`, is added to
  // the source, or stands alone on the source's LevelMin when `maskOnly` is non-zero. `sigma` is that of the first
  // smoothing, which sets the size of the stars looked for; the second has a sigma of 1.0 within 3 by 3 pixels.
  void StarEnhanceFilter(double sigma, double gain, double threshold, int maskOnly, CVynImage* source, CRect* pRect,
                         int bProgress);
  // The same with a sigma of 1.0 in the first smoothing; `sigma` is that of the second, which sets how far the stars
  // spread.
  void StarEnhanceFilter2(double* sigma, double* gain, double* threshold, int maskOnly, CVynImage* source, CRect* pRect,
                          int bProgress);
  // The mask of StarEnhanceFilter2, g * gain + LevelMin of the source; `blend` non-zero: (g * gain + source) / 2 +
  // LevelMin.
  void StaryMask(double sigma, double gain, double threshold, int blend, CVynImage* source, CRect* pRect,
                 int bProgress);

  // Gaussian mean away from stars and edges. Pixels whose response is not below the threshold are marked; a pixel
  // without a mark within `discRadius` (the pixel itself always counts; -1 means 1) becomes the mean of the unmarked
  // pixels around it, weighted by the Gaussian of `sigma`; others stay. `maskOnly` non-zero writes this object's levels
  // instead: LevelMax where the pixel would keep its value, LevelMin elsewhere and on not-a-number.
  void NebularSmootherFilter(double* sigma, double* threshold, double* discRadius, int maskOnly, CVynImage* source,
                             CRect* pRect, int bProgress);

 private:
  // Both second steps; `planes` holds the constants of each plane.
  void Develop(bool gammaFirst, int develop, const qmr::Development (&planes)[3], const int* maskPlane,
               CVynImage* source, const CRect* pRect, int bProgress);
};
