// Development of mosaics from Bayer colour sensors.
#pragma once

#include <vector>

#include "qmrimg/image/vyn_image.h"

namespace qmr {
class BayerBand;
}

// What one development is to do. Values are raw scale.
struct tagBayerStruct {
  // Where the colours of planes 0 and 2 stand in the cell of rows 0, 1 and columns 0, 1; green takes the other two
  // sites. 1: (0, 0) and (1, 1). 2: (0, 1) and (1, 0). 3: (1, 1) and (0, 0). 4: (1, 0) and (0, 1), as (row, column).
  int pattern;
  // Bits of the samples: 12, 14, or -32 for samples that are floating-point values as they are.
  int srcBits;
  // Columns and rows cut at the edges, at least 3 each: nothing nearer to an edge is interpolated.
  int leftMargin;
  int topMargin;
  int rightMargin;
  int bottomMargin;
  // 16 for 12 or 14-bit samples, -32 for -32.
  int dstBits;
  // Non-zero: luminance only, in plane 0; zero: three planes.
  int isMono;
  // Non-zero: the range is that of the pixels; zero: it follows from the bits (for -32: from the object's levels).
  int autoRange;
  // Non-zero: multiply each site class by its gain first.
  int useGain;
  // Non-zero: bend the gains so that the range maps onto itself; zero: plain products.
  int useKnee;
  // Gains of (even row, even column), (even, odd), (odd, even), (odd, odd); the caller's, read only with useGain.
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

// Plane 0 of the object is the mosaic; afterwards the object is the developed image, smaller by the margins. The
// luminance keeps full detail; colour comes as the 3 by 3 mean of what the colours differ from it.
//
// With an even top margin, an odd number of rows or fewer than eight rows the outermost result rows are 0.0. Levels
// stay as they are; results of CalcMinMax are stale.
class QMR_API CImgBayerToRgb : public CVynImage {
 public:
  CImgBayerToRgb();
  CImgBayerToRgb(const CImgBayerToRgb& src);
  ~CImgBayerToRgb() override;
  CImgBayerToRgb& operator=(const CImgBayerToRgb& src);

  // 1 on success. 0, with nothing changed and nothing reported, for arguments out of range or margins that leave
  // nothing; 0 when memory lacks (the object may have its new shape then). Raises the memory exception when not even
  // the working image can be had.
  int Do(tagBayerStruct bayer, int bProgress);
  // Develops a copy of `src`, a mosaic, into the object.
  int Do(tagBayerStruct bayer, CVynImage* src, int bProgress);

  // White-balance gains that make the medians of the site classes of the object's mosaic equal to that of green.
  // A class with a median below 1.0 gets 1.0. 0 for a pattern outside 1..4.
  int GetGain(int pattern, double* gains);

 protected:
  // The development is defined on tiles by these members; Do gives the same pixels from rows that it interpolates
  // only once. Each gives 1 for success and 0 for failure. Tiles are zero-filled memory of six planes of `rows` rows of
  // `width` floats, of which a tile of row y holds the mosaic rows y - 3 to y + rows - 4: mosaic, second colour, green,
  // first colour, luminance of gained samples, luminance of plain samples. Buffers have three such planes. `plane`
  // 1 means gained samples.
  int GetGain(CImage* image, int pattern, double* gains);
  int ArgCheck(const tagBayerStruct* bayer) const;
  int ChangeBitImage(CImage* image, int srcBits, int dstBits, int autoRange);
  int CopySrcToBayer(CImage* work, int useGain);
  int CopyOrgToDisp(CImage* work, float* tile, int plane, DWORD y, DWORD width, DWORD height, DWORD rows);
  int MakeYImage(float* tile, float* buffer, tagBayerStruct* bayer, int plane, DWORD width, DWORD rows);
  int MakeRGBImage(float* tile, float* buffer, tagBayerStruct* bayer, int plane, DWORD width, DWORD rows);
  // `mode` 0: base and reference luminance of plain samples; 2: both of gained samples; 1: plain base, gained
  // reference.
  int SynthImage(float* tile, tagBayerStruct* bayer, int mode, DWORD y, DWORD rows, DWORD width, float lo, float hi);
  int ToneCurveCorrect(CImage* work, int plane, tagBayerStruct* bayer, float lo, float hi);
  int GammaCorrect(CImage* image, tagBayerStruct* bayer);

 private:
  struct Samples;
  Samples PrepareSamples(CImage* work, const tagBayerStruct& bayer);
  bool DevelopRows(const CImage& mosaic, const tagBayerStruct& bayer, const Samples& samples,
                   std::vector<qmr::BayerBand>& bands);
};
