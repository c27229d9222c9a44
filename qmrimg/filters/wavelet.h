// Multi-resolution decomposition with Daubechies wavelets.
#pragma once

#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/array.h"

namespace qmr {
struct WaveletGains;
struct WaveletTaps;
}  // namespace qmr

// Splits an image into sub-bands, in place, and puts it together again with a gain for each sub-band of each level.
// The work takes place in a buffer image whose sides are multiples of 2 to the number of levels:
//
//   CImgWavelet wavelet;
//   wavelet.SetDaubechyParams(4);
//   wavelet.CalcBufferSize(&rect, levels, &size);      // and shape `buffer` so, with the levels of the source
//   wavelet.CopyToBuffer(&buffer, &source, &rect);
//   wavelet.DoMultiResSubbandDecomposition(&buffer, levels, 1);
//   wavelet.DoMultiResSubbandComposition(&buffer, levels, 1.0f, &row, &column, &diagonal, 1);
//   wavelet.CopyFromBuffer(&destination, &rect, &buffer);
//
// Pixels are on the raw scale. A decomposed image holds the usual pyramid: in the rectangle of each level, upper left
// the low band (which keeps the scale of the pixels), upper right the detail of rows, lower left the detail of columns,
// lower right the diagonal detail. The image is taken as periodic. A side that is odd at some level loses its last
// sample there. Images without float pixels, and null images, stay as they are.
//
// The object gives the filter and the progress report; its own pixels take no part unless it is passed as an image.
// Copies have the same filter.
class QMR_API CImgWavelet : public CVynImage {
 public:
  CImgWavelet();
  CImgWavelet(const CImgWavelet& src);
  CImgWavelet& operator=(const CImgWavelet& src);
  ~CImgWavelet() override;

  // The extremal-phase filter of `order` vanishing moments and 2 * order taps, 1 (Haar) to 10; needed before the first
  // transform. Another order gives a filter of zeros, with which transforms leave only zeros.
  // Source: I. Daubechies, Ten Lectures on Wavelets, SIAM, 1992.
  void SetDaubechyParams(int order);

  // The rectangle 0, 0, width, height of a work image for the pixels of `pRect` (null: this image): each side at least
  // 4 * 2^(levels - 1), and a multiple of 2^levels. Sides beyond int become the greatest int.
  void CalcBufferSize(CRect* pRect, int levels, CRect* buffer);
  // Fills the buffer from the top left corner of the rectangle (clamped to the source; null: the whole source) as far
  // as the source goes, also beyond the rectangle; the source's last column and row are repeated in the rest. Planes
  // that one of the two lacks stay, and so does everything when there is nothing to copy.
  void CopyToBuffer(CVynImage* buffer, CVynImage* source, CRect* pRect);
  // The reverse: the buffer's top left part to the rectangle of the destination.
  void CopyFromBuffer(CVynImage* destination, CRect* pRect, CVynImage* buffer);

  // 1, also when `levels` is below 1 and there is nothing to do; 0 when the user cancelled, which leaves the image half
  // transformed, or when there is no image.
  int DoMultiResSubbandDecomposition(CVynImage* image, int levels, int bProgress);
  // The gains are indexed by level, 0 being the finest; `lowGain` acts on the coarsest low band, around the middle of
  // the plane's levels. Gains of 1 restore what was decomposed, within float rounding. Arrays that are null or shorter
  // than `levels` raise the invalid-argument exception, with the report left open and the image untouched. Levels that
  // the image is too small for (a side shifted right by levels - 1 is 0): nothing is composed.
  int DoMultiResSubbandComposition(CVynImage* image, int levels, float lowGain, CArray<float, float>* rowGain,
                                   CArray<float, float>* columnGain, CArray<float, float>* diagonalGain, int bProgress);

 protected:
  // One line in place.
  void Wavelet1d(CArray<float, float>* line);
  void InvWavelet1d(CArray<float, float>* line);
  // One level of all planes, in as many pixels as the rectangle has, counted from the image's corner (null: all). Rows
  // and columns are reported as width * height units each; 0 when the report tells of a cancellation.
  int Wavelet2d(CVynImage* image, CRect* pRect);
  int InvWavelet2d(CVynImage* image, CRect* pRect, float lowGain, float rowGain, float columnGain, float diagonalGain);

  // Filter length; -1 before SetDaubechyParams.
  int taps = -1;
  // The published low-pass times sqrt(2), so that it sums to 2, and its mirror with alternating signs.
  float lowSynthesis[20] = {};
  float highSynthesis[20] = {};
  // Half of each: the analysis low-pass sums to 1.
  float lowAnalysis[20] = {};
  float highAnalysis[20] = {};

 private:
  qmr::WaveletTaps Filter(const float* low, const float* high) const;
  // One level of w x h pixels; each pass reports `units`.
  int Analyse(CVynImage& image, int w, int h, int units);
  int Synthesise(CVynImage& image, int w, int h, const qmr::WaveletGains& gains, int units);
};
