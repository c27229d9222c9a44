// A window of image rows around one row.
#pragma once

#include <vector>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/platform/export.h"

class CVynImage;

// Row addresses around `centreRow`, for convolution and rank selection at a pixel. Columns are clamped to the
// image; rows mirror about both end rows: row -k reads row k, row H - 1 + k reads row H - 1 - k. (The separable
// engine mirrors differently at the bottom, on purpose.) Pixels are on the raw scale.
//
// A window belongs to one thread. The image must outlive it.
class QMR_API CFilterBlock {
 public:
  CFilterBlock(CVynImage* image, int radius, int left, int centreRow, int plane, int mode);
  CFilterBlock(const CFilterBlock&) = delete;
  CFilterBlock& operator=(const CFilterBlock&) = delete;
  // Ends the pins on the image's rows.
  virtual ~CFilterBlock();

  // Moves the window. The row addresses start at column `left`, which is 0 in all ordinary use; bit 1 of `mode`
  // pins the rows. 0 when the image has no such plane or column or no float samples, and then the window stays as it
  // was.
  int Set(CVynImage* image, int radius, int left, int centreRow, int plane, int mode);
  // The pixel at image coordinates; 0.0 outside the window's rows or the image's columns.
  float GetPixel(int x, int y) const;
  // Sum of kernel times pixel around column `x`, the kernel not flipped. Summed in float where radii are equal and
  // the window lies inside the columns; otherwise over the cells that window and kernel have in common, in double
  // narrowed after each term, and 0.0 when that is the centre alone.
  float Convolve(CFilterMatrix* matrix, int x) const;
  // The second form, with each pixel first limited to low..high.
  float ConvolveClamped(CFilterMatrix* matrix, int x, float low, float high) const;
  // The pixels under the kernel's elements of exactly 1.0, ascending, not-a-number last; the array stays the
  // window's. Does nothing when the common radius is 0.
  float* Sort(CFilterMatrix* matrix, int x);
  // Element `rank` of those, 0.0 outside their number.
  float GetSorted(CFilterMatrix* matrix, int x, int rank);
  int GetSortedCount() const { return sortedCount; }

 protected:
  std::vector<const float*> rows;
  int radius = -1;
  int left = 0;
  int centreRow = 0;
  CVynImage* image = nullptr;
  std::vector<float> sorted;
  int sortedCount = 0;
  int sortedCapacity = 0;

 private:
  int CommonRadius(const CFilterMatrix& matrix) const;
  // Image column `column`, clamped, of the row `dy` below the centre.
  float Clamped(int dy, long long column) const;
};
