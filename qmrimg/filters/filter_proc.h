// The separable convolver for passes over whole images.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/platform/export.h"

class CVynImage;

// Convolves one plane with the centre row of a kernel, horizontally and vertically, so that the result equals the
// kernel's two-dimensional convolution only when it is the outer product of a symmetric row, as a Gaussian is.
//
// Columns are clamped to the image. At the top row -k reads row k; at the bottom row H + k reads row H - 1 - k, so
// the last row is repeated. (CFilterBlock mirrors differently at the bottom, on purpose.)
//
// Each thread keeps a ring of horizontally filtered rows, so that an image row is filtered once however many output
// rows use it. The engine is built for downward scans: every thread takes its rows in ascending order. A step of at
// most `size` rows upward does not bring in the rows above the window, on purpose; StartPass does away with what an
// earlier scan left. Several threads may use one engine, each on rows of its own.
//
// The image is read at every call: it must outlive the engine's use, and neither its shape nor the number of threads
// may change between MakeBuf and Empty.
class QMR_API CFilterProc {
 public:
  CFilterProc();
  CFilterProc(CVynImage* source, CFilterMatrix* matrix, int plane);
  // Copies share rings, kernel and the state of the scan.
  CFilterProc(const CFilterProc&) = default;
  CFilterProc& operator=(const CFilterProc&) = default;
  virtual ~CFilterProc();

  // Start values for all fields, nothing allocated.
  void Init();
  // Gives up rings and kernel.
  void Empty();
  int IsEmpty() const;
  // Prepares the engine for a plane of `source`; `normalize` non-zero divides the kernel by its float sum, without
  // a guard for a sum of 0. The kernel is copied. Gives 1; without source or matrix the engine stays as it was.
  int MakeBuf(CVynImage* source, CFilterMatrix* matrix, int plane, int normalize);
  // The filtered pixel, raw scale; 0.0 on an empty engine or outside the columns of the image.
  float Calc(int x, int y);

  // Slides the calling thread's ring to row `y`; `x` plays no part. 0 when there is no ring for it. The suffix _x
  // means sums in double, which is what Calc uses on every processor; the others sum in float.
  int ProcHorizontal(int x, int y);
  int ProcHorizontal_x(int x, int y);
  // The vertical sum at column `x` over the ring.
  float ProcVertical(int x) const;
  float ProcVertical_x(int x) const;

  // Forgets the rows of all rings, so that each thread's next row fills its window afresh. Not while threads scan.
  void StartPass();

  int GetRadius() const { return radius; }
  int GetPlane() const { return plane; }
  CVynImage* GetSource() const { return source; }
  // The one-dimensional kernel, 2 * radius + 1 values; empty on an empty engine.
  std::span<const float> GetKernel() const;

 protected:
  int radius = 0;
  int size = 0;
  CVynImage* source = nullptr;
  CFilterMatrix* matrix = nullptr;
  int ringLength = 0;
  std::shared_ptr<std::vector<std::unique_ptr<float[]>>> rings;
  int plane = 0;
  std::shared_ptr<float[]> kernel;
  int width = 50;
  // One entry a thread. `lastColumn` is set and not used further.
  std::shared_ptr<int[]> lastColumn;
  std::shared_ptr<int[]> lastRow;
  std::shared_ptr<int[]> ringHead;
  int threads = 0;

 private:
  struct Scratch;

  template <class Sum>
  int SlideRing(int y);
  template <class Sum>
  float SumColumn(int x) const;

  std::shared_ptr<double[]> wideKernel_;
  std::shared_ptr<std::vector<Scratch>> scratch_;
};

// Three engines, one a plane.
class QMR_API CFilterProcEx {
 public:
  CFilterProcEx();
  // Copies share what their engines share, and select the same plane.
  CFilterProcEx(const CFilterProcEx& src);
  CFilterProcEx& operator=(const CFilterProcEx& src);
  virtual ~CFilterProcEx();

  // 0 for a plane out of 0..2; 1 without doing anything when that plane's engine is in use; otherwise its MakeBuf.
  int Make(CVynImage* source, CFilterMatrix* matrix, int plane, int normalize);
  void Clear();
  // Selects the plane's engine, or that of plane 0 when the number is out of 0..2.
  void SetPln(int plane);
  // Through the selected engine; plane 0 before the first SetPln.
  float Calc(int x, int y);
  // 0.0 for a plane out of 0..2.
  float Calc(int x, int y, int plane);
  // The plane's engine; null for a plane out of 0..2.
  CFilterProc* Get(int plane) { return plane >= 0 && plane < 3 ? &procs[plane] : nullptr; }

 protected:
  CFilterProc procs[3];
  CFilterProc* current = procs;
};
