// Stacks of any number of aligned frames.
#pragma once

#include <cstdint>

#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/array.h"

namespace qmr {
struct StackRule;
}

// One frame's strip: rows one after the other, inside a row plane after plane, `width` entries each.
class QMR_API CLineData {
 public:
  // `count` entries, all 0. Raises the memory exception; owns both arrays.
  explicit CLineData(int count);
  CLineData(const CLineData&) = delete;
  CLineData& operator=(const CLineData&) = delete;
  ~CLineData();

  double* values;
  // 1 where the frame covers the pixel.
  int* valid;
};

// How a frame is brought to the reference, one entry a plane.
struct SNormalizeItem {
  double offset[3];
  double scale[3];
};

// Stacks frames strip by strip into a destination image: Store one strip of every frame, then one calculation for
// that strip, which writes its rows and drops the stored lines; then the next strip. The memory in use is strip
// height * width * planes * frames * 12 bytes. The object itself is never written as an image.
//
// `yStart` and `yEnd` are inclusive and cut to the destination; a strip other than the one of the lines in store is
// refused, and so is any strip of a destination whose shape changed since. Values are raw. A pixel that no frame covers
// is 0.0.
class QMR_API CImgMedianComposit : public CVynImage {
 public:
  // Opens the progress report of `destination`, which stays the caller's. `mode` selects its text alone: 1 clipped
  // mean, 2 maximum, 3 minimum, others median.
  CImgMedianComposit(CVynImage* destination, int mode);
  CImgMedianComposit(const CImgMedianComposit&) = delete;
  CImgMedianComposit& operator=(const CImgMedianComposit&) = delete;
  ~CImgMedianComposit() override;

  // Samples rows of `frame`, shifted by (shiftX, shiftY) pixels and turned by `angle` degrees about its StdCtr (its
  // middle when useImageCenter is 0), by method `method` of CInterp. With addOffset, offsets[0], offsets[1], ... are
  // added in turn to the values, element by element: on three planes they cycle within a plane's row, on purpose.
  // 1, or 0 for a frame or strip that can't be taken, or, with a message box, without memory.
  int Store(CVynImage* frame, int yStart, int yEnd, double shiftX, double shiftY, double angle, int useImageCenter,
            int addOffset, float* const offsets, int method);
  // Three values each. Items belong to the frames in the order of Store and survive the strips.
  void AddNormalizeParam(double* offset, double* scale);
  void SetRefNormalizeParam(double* offset, double* scale);

  // Median.
  void Calc(int yStart, int yEnd);
  // Mean of the values within kappa standard deviations of the median. The others count as the median, or not at
  // all when dropRejected is non-zero.
  void Calc(double kappa, int yStart, int yEnd, int dropRejected);
  // Maximum of the values above 0; the smallest normal float where there is none.
  void CalcMax(int yStart, int yEnd);
  void CalcMin(int yStart, int yEnd);
  // Median and clipped mean of (v - offset) * (reference scale / scale) + reference offset. Two valid frames give
  // their mean when kappa >= 1.0, otherwise 0.0. Fewer items than lines raise the invalid-argument exception.
  void NewCalc(int yStart, int yEnd);
  void NewCalc(double kappa, int yStart, int yEnd);

 protected:
  CVynImage* destination;
  CArray<CLineData*> lines;
  int lineCount = 0;
  int messageId;
  CArray<SNormalizeItem> normalizeItems;
  double refOffset[3] = {};
  double refScale[3] = {};

 private:
  bool CutStrip(int* yStart, int* yEnd) const;
  int StoreFailed(std::int64_t count);
  void CalcStrip(const qmr::StackRule& rule, bool normalized, int yStart, int yEnd);
  void CalcRows(const qmr::StackRule& rule, bool normalized, int yStart, int yEnd);
  void DropLines();

  // The strip of the lines in store, and the shape of their rows.
  int stripStart = 0;
  int stripEnd = -1;
  int stripWidth = 0;
  int stripPlanes = 0;
};
