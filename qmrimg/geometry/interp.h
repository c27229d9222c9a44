// Sampling of an image at positions that are no integers.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "qmrimg/platform/geometry.h"
#include "qmrimg/platform/text.h"

class CVynImage;

namespace qmr {
class FrameSampler;
class RowEngine;
}  // namespace qmr

// A value class: construct it with a method number, bind it to a source and a mapping with SetBParam, then ask for
// pixels or for whole rows.
//
//   0 Bilinear         2 x 2 pixels
//   1 Bicubic          4 x 4, the cubic kernel of Keys (1981) with a = -0.5
//   2 Lanczos2         4 x 4, sinc windowed by sinc (Lanczos 1956, Duchon 1979)
//   3 Lanczos3         6 x 6
//   4 NearestNeighbor
//
// Pixels beyond the border repeat the border. The Lanczos weights are not normalised and results are not limited to
// the levels. Coordinates are pixels of the source; values are raw unless a member says 256.
//
// The source stays the caller's and must neither move nor change while the object is used. One object a worker: the
// row members keep buffers. `Do` and the window members keep none and may run on many threads.
class QMR_API CInterp {
 public:
  explicit CInterp(int method);
  // Bound to `image` for `Do`; the third argument has no effect.
  CInterp(int method, CVynImage* image, int ignored);
  // Copies build a row table of their own; like all members that need memory they may raise the memory exception.
  CInterp(const CInterp& other);
  CInterp& operator=(const CInterp& other);
  ~CInterp();

  // The number of an English method name, in any case; -1 for another text.
  static int GetMethod(CString& name);
  // The name to show and the English name; empty for a number that is no method.
  static CString GetString(int method);
  static CString GetEngString(int method);

  // For rows. `shiftType` 0: a shift by whole pixels, rows are copied; 1: a shift; 2: a rotation. A row covers the
  // source columns floor(xStart) .. floor(xEnd) - 1 (the median rows: .. floor(xEnd)). `to256` non-zero: the
  // three-line rows are on the 256-scale of the source. `plane` is a plane number or -1 for all planes; for median
  // rows it is the number of planes to deliver. The centre of rotation is the image's StdCtr when `useImageCenter`
  // is non-zero, else half its size. `scale` acts on GetPixelL and GetPixelAb alone.
  void SetBParam(int shiftType, CVynImage* image, double xStart, double xEnd, int to256, float outsideValue, int plane,
                 double sinValue, double cosValue, double scale, int useImageCenter);
  // For single pixels of a destination that is shifted and turned against the source. The cosine alone decides
  // whether this counts as a rotation.
  void SetBParam(CVynImage* image, double shiftX, double shiftY, double sinValue, double cosValue, double scale,
                 int useImageCenter, int plane, float outsideValue);
  // Makes rows exactly `columns` long from floor(xStart) on, whatever xEnd rounds to; 0, the default, goes back to
  // xStart and xEnd. Destinations whose ranges were rounded on the way use it.
  void SetRowWidth(int columns) { rowWidth = columns; }
  // Reads the addresses of all source rows anew.
  void GetImageYaddress();

  // The sample at (x, y); 0.0 beyond 0..width or 0..height (the nearest neighbour takes every position), for a plane
  // that the image lacks, and for an unknown method.
  float Do(double x, double y, int plane) const;
  // The same by one method on `image`: 1 and the sample, or 0 and `*out` as it was.
  int Bilinear(CVynImage* image, int plane, double x, double y, float* out) const;
  int Bicubic(CVynImage* image, int plane, double x, double y, float* out) const;
  int Lanczos2(CVynImage* image, int plane, double x, double y, float* out) const;
  int Lanczos3(CVynImage* image, int plane, double x, double y, float* out) const;
  int Nearest(CVynImage* image, int plane, double x, double y, float* out) const;
  // One pixel of the source; 0 outside.
  float GetPixData(int x, int y, int plane) const;

  static double KernelBicubic(double t, double a);
  static double KernelLanczos(double t, double n);
  // Sum over n rows of weightsY times the sum over n columns of pixels times weightsX.
  static float Calc(double* weightsY, float* pixels, double* weightsX, int n);

  // The sample for destination pixel (x, y); brightness for `plane` -1 on a colour source. Outside the source
  // `*outside` becomes 1 and the result is the outside value. The pointers may be null.
  float GetBPixelGrayRaw(int x, int y, int* outside, double* sourceX, double* sourceY) const;
  float GetBPixelGray256f(int x, int y, int* outside, double* sourceX, double* sourceY) const;
  // Planes 0 and 1 of a Lab working image, with `scale`; the outside value beyond the image.
  float GetPixelL(int x, int y) const;
  void GetPixelAb(int x, int y, double* a, double* b) const;

  // Rows at source height y. One line: plane `plane`, raw scale.
  void GetBLine(double y, float* line);
  // `plane` -1: the three planes (a monochrome source on all three lines). Otherwise line0 alone: the brightness of
  // a colour source, the value of a monochrome one.
  void GetBLine(double y, float* line0, float* line1, float* line2);
  // `plane` planes one after the other in both arrays. `valid` is 1 for a pixel of the source, else 0 (and the value
  // is the outside value). A source with fewer planes gives plane 0 for all of them.
  void GetBLineMed(double y, double* values, int* valid);

 protected:
  void GetBLine_int(int y, float* line);
  void GetBLine_int(int y, float* line0, float* line1, float* line2);
  void GetBLine_float(double y, float* line);
  void GetBLine_float(double y, float* line0, float* line1, float* line2);
  void GetBLine_rotate(double y, float* line);
  void GetBLine_rotate(double y, float* line0, float* line1, float* line2);
  void GetBLineMed_int(int y, double* values, int* valid);
  void GetBLineMed_float(double y, double* values, int* valid);
  void GetBLineMed_rotate(double y, double* values, int* valid);

  // A sample near the edge: the interpolator is left out at exact positions before the last column and row.
  float GetBPixelGrayRaw(double x, double y, int plane) const;
  float GetBPixelGray256f(double x, double y, int plane) const;

  int method;
  int shiftType = 0;
  CVynImage* image = nullptr;
  double xStart = 0.0;
  double xEnd = 0.0;
  int xStartInt = -1;
  int xEndInt = -1;
  int to256 = 0;
  float outsideValue = 0.0f;
  int plane = 0;
  double sinValue = 0.0;
  double cosValue = 0.0;
  double scale = 1.0;
  double shiftX = 0.0;
  double shiftY = 0.0;
  CfPoint center;
  int width = 0;
  int height = 0;
  int colorFlag = 0;
  float levelMinF[3] = {};
  float levelGainF[3] = {};
  std::unique_ptr<const float*[]> rowTable;
  int planeCount = 0;
  std::vector<int> planeRowOffset;

 private:
  friend class qmr::FrameSampler;
  struct RowPlan;
  struct Position;

  void DropRowTable();
  void CopyFields(const CInterp& other);
  void Bind(CVynImage* source, int useImageCenter);
  bool IsColorSource() const;
  qmr::RowEngine& Engine();
  template <class Taps>
  int Window(CVynImage* source, int sourcePlane, double x, double y, float* out) const;
  template <class Sample>
  int SampleAt(CVynImage* source, int sourcePlane, double x, double y, float* out, Sample&& sample) const;
  Position MapToSource(int x, int y, bool withScale) const;

  bool HasRows() const;
  int RowLength(bool inclusive) const;
  RowPlan PlanInt(int y, bool median);
  RowPlan PlanFloat(double y, bool median);
  RowPlan PlanRotate(double y, bool median);
  RowPlan PlanMedian(double y);
  void SamplePlanes(const RowPlan& plan, const int* planes, int count, float* const* lines);
  void WriteLine(const RowPlan& plan, float* line);
  void WriteLines(const RowPlan& plan, float* const* lines);
  void WriteMedian(const RowPlan& plan, double* values, int* valid);
  void SampleMedian(const RowPlan& plan, int first, int count, float* const* lines);
  void FillOutside(const RowPlan& plan, float* line) const;

  int rowWidth = 0;
  std::ptrdiff_t rowStride = 0;
  int tableWidth = 0;
  int tableHeight = 0;
  std::unique_ptr<qmr::RowEngine> engine;
};
