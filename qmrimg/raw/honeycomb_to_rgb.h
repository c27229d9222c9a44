// Development of mosaics from sensors with a diagonal lattice of photosites (honeycomb).
#pragma once

#include <vector>

#include "qmrimg/image/vyn_image.h"

namespace qmr {
class HoneycombBand;
}

// What one development is to do. Values are raw scale.
struct tagHoneyCombStruct {
  // Where the 4 by 4 cell of colours begins, as (column, row). 11: (0, 0). 12: (2, 0). 13: (1, 1). 14: (3, 1).
  // Sites have an odd sum of row and column with all four.
  int pattern;
  // Bits of the samples: 12, or -32 for samples that are floating-point values as they are.
  int srcBits;
  // Columns and rows cut at the edges, 0 or more. Pixels of the inner picture, 4 pixels from each edge (5 from the top
  // with patterns 13 and 14), come from samples alone; nearer to an edge see CImgHoneyCombToRgb.
  int leftMargin;
  int topMargin;
  int rightMargin;
  int bottomMargin;
  // 16 for 12-bit samples, -32 for -32.
  int dstBits;
  // Non-zero: luminance only, in plane 0; zero: three planes.
  int isMono;
  // Which samples the values that a site lacks come from. 2: pairs along rows. 1: pairs along columns. 3: the mean of
  // both, the smallest error on stars.
  BYTE interpolation;
  // Non-zero: the range is that of the samples; zero: it follows from the bits (for -32: from the object's levels).
  int autoRange;
  // Non-zero: multiply each site of the cell by its gain first.
  int useGain;
  // Non-zero: bend the gains so that the range maps onto itself; zero: plain products.
  int useKnee;
  // Gains of the eight sites in the order that GetGain gives; the caller's, read only with useGain.
  double* gains;
  // Non-zero: raise the result to the power 1 / gamma within its range.
  int useGamma;
  double gamma;
  // Non-zero: limit gained samples and results to the range.
  int clip;
  // Non-zero: subtract blackLevel from the samples first, without a limit.
  int subtractBlack;
  float blackLevel;
};

// Plane 0 of the object is the mosaic, pixels between the sites are not looked at; afterwards the object is the
// developed image, smaller by the margins. The luminance keeps full detail; red and blue come as the 3 by 3 mean of
// what they differ from it, and green is what remains.
//
// Edges: the mosaic is continued by its mirror image at the left, the right and the top, so these need no margin. At
// the bottom the last four rows can stay 0.0 or hold traces of what stands between the sites: a bottom margin of 4 is
// always clean. With patterns 13 and 14 and a top margin that is a multiple of 4 the first row stays 0.0. Levels stay
// as they are; results of CalcMinMax are stale.
class QMR_API CImgHoneyCombToRgb : public CVynImage {
 public:
  CImgHoneyCombToRgb();
  CImgHoneyCombToRgb(const CImgHoneyCombToRgb& src);
  ~CImgHoneyCombToRgb() override;
  CImgHoneyCombToRgb& operator=(const CImgHoneyCombToRgb& src);

  // 1 on success. 0, with nothing reported, for arguments out of range, negative margins or margins that leave
  // nothing: the object is as it was then, but a pattern of 1 to 10 is refused only after the black level was
  // subtracted. 0 when memory lacks (the object may have its new shape then). Raises the memory exception when not
  // even the working image can be had.
  int Do(tagHoneyCombStruct honeycomb, int bProgress);
  // Develops a copy of `src`, a mosaic, into the object.
  int Do(tagHoneyCombStruct honeycomb, CVynImage* src, int bProgress);

  // White-balance gains that make the medians of the eight sites of the object's mosaic equal to the largest. With all
  // patterns in the order of (row, column) modulo 4, from the corner of the picture inside of a camera's border:
  // (0, 1), (1, 0), (2, 1), (3, 0), (0, 3), (1, 2), (2, 3), (3, 2). 0 without a mosaic.
  int GetGain(int pattern, double* gains);

  // Smallest and largest sample of the photosites of one plane of any image; where the object's header names a camera
  // with a border around the picture, that of the inside. Without a sample: the largest double and its negative.
  void GetMinMax(CImage* image, int plane, double* min, double* max);
  using CVynImage::GetMinMax;

 protected:
  // Each gives 1 for success and 0 for failure. The development is defined on tiles, nine zero-filled planes of 14
  // rows of the mosaic's width: 0 mosaic; 1 the luminance by pairs along rows, made from copies of the mosaic that
  // are filled with red (2) and blue (3); 4, 5 and 6 the same by pairs along columns; 7 the luminance of plain
  // samples, 8 that of gained ones. Do gives the same pixels from rows that it fills only once.
  int ArgCheck(const tagHoneyCombStruct* honeycomb) const;
  int GetCFAParam(int pattern, int* xPhase, int* yPhase) const;
  int CopySrcToDstImage(CImage* work, int useGain);
  // `autoRange` takes the range from GetMinMax above.
  int ChangeBitImage(CImage* image, int srcBits, int dstBits, int autoRange);
  // Gains onto plane 1 of the work image; pixels between the sites stay.
  int ToneCurveCorrect(CImage* work, const tagHoneyCombStruct* honeycomb, float lo, float hi);
  // The 14 rows y - 4 to y + 9 into plane 0 of a tile; `y` is the first row of a cell.
  int CImageToMem(CImage* work, int y, int plane, float* tile);
  int GammaCorrect(CImage* image, const tagHoneyCombStruct* honeycomb);

 private:
  struct Samples;
  Samples PrepareSamples(CImage* work, const tagHoneyCombStruct& honeycomb, int yPhase);
  bool DevelopRows(const CImage& mosaic, const tagHoneyCombStruct& honeycomb, const Samples& samples, int firstRow,
                   std::vector<qmr::HoneycombBand>& bands);
};
