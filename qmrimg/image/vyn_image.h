// The central image of the library: float pixels with levels, progress, statistics, marks, display, convolution
// engines and calibration. Every operation is a class derived from it, and its object is the destination image.
#pragma once

#include <cstdint>
#include <memory>

#include "qmrimg/filters/filter_proc.h"
#include "qmrimg/platform/geometry.h"
#include "qmrimg/platform/text.h"
#include "qmrimg/store/image.h"

class CMemoryDIB;
struct BITMAPINFOHEADER;

// Two scales are in use. The raw scale is the stored float. On the 256-scale the plane's LevelMin is 0 and LevelMax
// is 255; it is not clamped. Where one value stands for a colour pixel, planes 0, 1 and 2 weigh 0.299, 0.587 and
// 0.114.
//
// `pRect` arguments name the pixels to process, right and bottom exclusive, null for the whole image; they are
// clamped to the image, and pixels outside stay as they are. `bProgress` non-zero reports progress to the window of
// SetProgressHandle.
//
// Pixel readers and writers with a pointer are the same formulas on a pixel already fetched, for loops along a row.
// Those with coordinates read 0.0 (raw scale) and write nothing outside the image or its planes. Several calls on one
// object run one after the other; readers may run on many threads (GetPixelGrayRawBuf may not).
class QMR_API CVynImage : public CImage {
 public:
  CVynImage();
  CVynImage(int bits, int width, int height, int planes, double bscale, double bzero, int flag, HWND window = nullptr,
            const wchar_t* message = nullptr);
  // A deep copy of the pixels, levels and header, with progress handle, reference points and the results of
  // CalcMinMax. Star, sky and pickup marks of the copy are 0, 0.
  CVynImage(const CVynImage& src, HWND window = nullptr, const wchar_t* message = nullptr);
  ~CVynImage() override;
  // May raise the memory exception.
  CVynImage& operator=(const CVynImage& src);

  int CopyImage(const CVynImage& src, HWND window = nullptr, const wchar_t* message = nullptr);
  // Shape and levels of `src`, all pixels 0.0.
  int Create(const CVynImage& src, HWND window = nullptr, const wchar_t* message = nullptr);
  // Exchanges pixels, levels, progress handle, reference points and results of CalcMinMax; marks and engines stay.
  void Swap(CVynImage* other);
  // Takes over a bitmap as float pixels; 0 when it can't be read or memory lacks.
  int AttachDIB(HDIB dib);
  CString GetRegKey() const;
  void SetRegKey(CString key);
  // The plane's pixels row after row, Width * Height floats; empty for a plane outside the image.
  std::unique_ptr<float[]> GetBlockImage(int plane) const;

  // ---- Scales and brightness ------------------------------------------------------------------------------------

  double To256(double v, int plane) const;
  float To256(float v, int plane) const;
  double ToRaw(double v, int plane) const;
  float ToRaw(float v, int plane) const;
  static float CalcBright(float r, float g, float b);
  static double CalcBright(double r, double g, double b);
  // Brightness by the L of the library's Lab space; arguments and result on the 256-scale.
  static double CalcBrightL(double r, double g, double b);

  // ---- Pixel readers --------------------------------------------------------------------------------------------

  float GetPixelGrayRaw(int x, int y, int plane) const;
  float GetPixelGrayRaw(const float* adr) const;
  float GetPixelGray(int x, int y, int plane) const;
  float GetPixelGray(const float* adr, int plane) const;
  float GetPixelGray256f(int x, int y, int plane) const;
  float GetPixelGray256f(const float* adr, int plane) const;
  double GetPixelGray256f(const float* adr, float min, float k) const;
  BYTE GetPixelGray256(int x, int y, int plane) const;
  BYTE GetPixelGray256(const float* adr, int plane) const;
  BYTE GetPixelGray256(const float* adr, float min, float max, float k) const;
  float GetPixelBright256f(int x, int y) const;
  float GetPixelBright256f(const float* r, const float* g, const float* b) const;
  float GetPixelBrightRaw(int x, int y) const;
  float GetPixelBrightRaw(const float* r, const float* g, const float* b) const;

  // Bilinear; coordinates beyond the image are clamped to it on the right and below.
  float GetPixelGrayRaw(double x, double y, int plane) const;
  float GetPixelGray(double x, double y, int plane) const;
  float GetPixelGray256f(double x, double y, int plane) const;
  // The same through a cache of two rows, for walks along rows on one thread. The cache knows rows only: call
  // GetPixelGrayRawBufInit before the first read, on another plane, and after the image was written. New pixels of the
  // image (Create, Swap, ChangeSize and the like) clear it by themselves.
  float GetPixelGrayRawBuf(double x, double y, int plane);
  void GetPixelGrayRawBufInit();

  // Readers for a destination pixel (x, y) of an image that is shifted by (dx, dy), turned about StdCtr and scaled:
  // see each formula in the source. `outside`, `srcX`, `srcY` may be null; `fill` is the value outside.
  float GetPixelGray256f(int x, int y, double dx, double dy, double sinA, double cosA, double scale, int plane,
                         double fill, int nearest, int* outside, double* srcX, double* srcY) const;
  float GetPixelGray256f(int x, int y, int dx, int dy, double sinA, double cosA, double scale, int plane, double fill,
                         int nearest, int* outside, double* srcX, double* srcY) const;
  float GetPixelGrayRaw(int x, int y, double dx, double dy, double sinA, double cosA, double scale, int plane,
                        double fill, int nearest, int* outside, double* srcX, double* srcY) const;
  float GetPixelGrayRaw(int x, int y, int dx, int dy, double sinA, double cosA, double scale, int plane, double fill,
                        int nearest, int* outside, double* srcX, double* srcY) const;
  void GetPixelRgb256f(int x, int y, double dx, double dy, double sinA, double cosA, int useStdCtr, double scale,
                       double* r, double* g, double* b, double fill, int* outside, double* srcX, double* srcY) const;
  void GetPixelRgb256f(int x, int y, int dx, int dy, double sinA, double cosA, int useStdCtr, double scale, double* r,
                       double* g, double* b, double fill, int* outside, double* srcX, double* srcY) const;
  void GetPixelRgbRaw(int x, int y, double dx, double dy, double sinA, double cosA, int useStdCtr, double scale,
                      double* r, double* g, double* b, double fill, int* outside, double* srcX, double* srcY) const;
  void GetPixelRgbRaw(int x, int y, int dx, int dy, double sinA, double cosA, int useStdCtr, double scale, double* r,
                      double* g, double* b, double fill, int* outside, double* srcX, double* srcY) const;
  // Plane 0, and planes 0 and 1, of a Lab working image, raw scale.
  float GetPixelL(int x, int y, double dx, double dy, double sinA, double cosA, double scale, double fill) const;
  void GetPixelAb(int x, int y, double dx, double dy, double sinA, double cosA, double scale, double* a, double* b,
                  double fill) const;

  // ---- Pixel writers --------------------------------------------------------------------------------------------

  void SetPixelGrayRaw(int x, int y, float v, int plane);
  void SetPixelGrayRaw(float* adr, float v) const;
  void SetPixelGray(int x, int y, float v, int plane);
  void SetPixelGray(float* adr, float v, int plane) const;
  void SetPixelGray256f(int x, int y, double v, int plane);
  void SetPixelGray256f(float* adr, double v, int plane) const;

  // ---- Levels, blocks and conversions ---------------------------------------------------------------------------

  // Raw scale. `plane` -1 on a monochrome image is plane 0; on a colour image it moves the three levels together.
  void SetLevel(int plane, double min, double max);
  // Limits every pixel to the levels of its plane.
  void CutOutOfLevel();
  void NormalizeRect(const CRect* r, int& left, int& top, int& right, int& bottom) const;
  // Copies a block of pixels, cut to what fits, from an image of as many planes; bScale non-zero carries the values
  // through the levels of both images.
  void PixelBlt(int dstX, int dstY, int width, int height, const CVynImage* src, int srcX, int srcY, int bScale);
  // Makes this image the brightness of `src`, another image of the same size; a monochrome image stays as it is.
  int ToGray(CVynImage* src, int bProgress);
  // Makes this image one of three planes.
  int ToColor();
  int ToColor(CVynImage* src, int bProgress);

  // ---- Progress -------------------------------------------------------------------------------------------------

  void SetProgressHandle(HWND window) { ProgressHandle = window; }
  HWND GetProgressHandle() const { return ProgressHandle; }
  // Opens a report of `total` work units, or one whose percentages are given directly.
  void ShowProgressInit(int bShow, const wchar_t* title, int total);
  void ShowProgressInit(int bShow, int id, int total);
  void ShowProgressInit(const wchar_t* title);
  void ShowProgressInit(int id);
  // Adds `n` units (or posts `n` percent); 1 to go on, 0 when the user pressed Esc. Callable from worker threads.
  int ShowProgress(int n);
  void ShowProgressEnd(const wchar_t* text);
  void ShowProgressEnd(int id);
  void ShowProgressMsg(const wchar_t* text);
  void ShowProgressMsg(int id);
  void ShowProgressSetHeader(const wchar_t* text);
  void ShowProgressClearHeader();

  // ---- Statistics -----------------------------------------------------------------------------------------------

  // Minimum, maximum and mean of all planes into the fields that GetMinPixel and its siblings read. The mean's
  // divisor is (Width - 1) * (Height - 1), on purpose: flat correction depends on it.
  void CalcMinMax();
  // The same inside a margin, pixels of 0.0 left out of all three.
  void CalcMinMax(int margin);
  float GetMinPixel(int plane) const { return plane >= 0 && plane < 3 ? MinPixel[plane] : 0.0f; }
  float GetMaxPixel(int plane) const { return plane >= 0 && plane < 3 ? MaxPixel[plane] : 0.0f; }
  float GetAvrPixel(int plane) const { return plane >= 0 && plane < 3 ? AvrPixel[plane] : 0.0f; }
  float CalcAvr(int plane) const;
  float CalcStdDev(int plane, const float* pAvr) const;
  float GetAvrGrayRaw(int plane) const;
  float GetAvrGray(int plane) const;
  float GetAvrGray256f(int plane) const;
  float GetMaxPixel(int plane, const CRect* pRect, int& x, int& y) const;
  float Get1stBrighterPixel(int plane, const CRect* pRect, double threshold, int& x, int& y) const;
  int GetHistogram(int* hist, int bins, double min, double max, int plane, int bLog, int bHeight, int bCull,
                   const CRect* pRect, int bProgress, int msgId);
  int GetHistogramRGB(int* r, int* g, int* b, int bins, double min, double max, double* unused1, double* unused2,
                      int bLog, int bHeight, int bCull, const CRect* pRect, int bProgress, int msgId);
  // Centroid of the squared excess over the window's mean, on the 256-scale; 1 when there is one and its nearest pixel
  // lies in the rectangle as given. Without any excess the doubles are not-a-number and the integers 0.
  int GetCentroid(double& cx, double& cy, const CRect* pRect) const;
  void GetCentroid(int& x, int& y, const CRect* pRect) const;
  // Centroid of the raw values; 0, and the middle of the rectangle, when it lies outside of it or there is no weight.
  int GetCentroidRaw(double& cx, double& cy, const CRect* pRect) const;
  int GetCentroidRaw(int& x, int& y, const CRect* pRect) const;
  // The same point as GetCentroid on a monochrome image, with the mean, the extremes and the sum above mean plus two
  // deviations. On colour the mean is divided by the pixel count once more, on purpose, and so is what the point
  // follows.
  int GetCentroid2(double& cx, double& cy, const CRect* pRect, double& avr, double& min, double& max,
                   double& flux) const;
  int GetFitPrm(CVynImage* ref, double& dx, double& dy, double& angle);
  int GetFitPrm(CVynImage* ref, double& dx, double& dy, double& angle, double addX, double addY, double addAngle);
  int GetFitPrmFromCentroid(CVynImage* ref, double& dx, double& dy);
  void LiftUp(int rows);

  // ---- Reference points and marks -------------------------------------------------------------------------------

  void InitStdPtCtr();
  void CopyStdPtCtr(const CVynImage* src);
  CfPoint GetStdPt(int i) const;
  // Setting point 0 sets the centre as well.
  void SetStdPt(int i, CfPoint pt);
  void ClearStdPt(int i);
  int IsValidStdPt(int i) const;
  int GetStdPtNum() const;
  CfPoint GetStdCtr() const { return StdCtr; }
  void SetStdCtr(int x, int y) { StdCtr.Set(x, y); }
  void SetStdCtr(double x, double y) { StdCtr.Set(x, y); }
  void SetStdCtr(CfPoint pt) { StdCtr = pt; }
  int IsValidStdCtr() const;
  // The middle of the image, in integers.
  void SetDefaultCenter();

  // Marks of the host. The star counts as set when either coordinate is not negative, the sky when it has a size
  // besides, the picked-up point when both are not negative.
  CPoint GetStarPt() const { return StarPt; }
  void SetStarPt(CPoint pt) { StarPt = pt; }
  void ClearStarPt();
  int IsValidStarPt() const;
  void GetSkyPt(CPoint& pt, int& size) const;
  void SetSkyPt(CPoint pt, int size);
  void ClearSkyPt();
  int IsValidSkyPt() const;
  CPoint GetPickupPt() const { return PickupPt; }
  void SetPickupPt(CPoint pt) { PickupPt = pt; }
  int IsValidPickupPt() const;
  // Background rectangles 0..31; another number is ignored and gives an empty one. A rectangle is set when it has a
  // width and a height, be they negative.
  CRect GetBkgRect(int i) const;
  void SetBkgRect(int i, CRect rect);
  void ClearBkgRect(int i);
  int IsValidBkgRect(int i) const;
  // How many of rectangles 0 and 1 are set; on purpose no others, hosts show two.
  int GetBkgRectNum() const;
  CfPoint GetCrossGaugePt() const { return CrossGaugePt; }
  void SetCrossGaugePt(double x, double y) { CrossGaugePt.Set(x, y); }
  void ShowCrossGauge(int show) { ShowCrossGaugeFlag = show; }
  int IsShowCrossGauge() const { return ShowCrossGaugeFlag; }

  // ---- Display --------------------------------------------------------------------------------------------------

  // Renders into the host's bitmap through the levels; the area comes from the bitmap's size.
  void ToDIB(CMemoryDIB* dib, const CRect* pRect, int unused);
  // A bitmap block of 8 or 24 bits that the caller frees with GlobalFree; null for other depths and without memory.
  HDIB GetDib(int bits) const;

  // ---- Convolution engines --------------------------------------------------------------------------------------
  // One group of three engines, and six further groups `slot` 0..5. An engine in use keeps its kernel until
  // ClearFilterProc.

  int MakeFilterProc(CVynImage* source, CFilterMatrix* matrix, int plane, int normalize);
  int MakeFilterProcEx(int slot, CVynImage* source, CFilterMatrix* matrix, int plane, int normalize);
  void SetFilterProcPln(int plane);
  void SetFilterProcPlnEx(int slot, int plane);
  float CalcFilterProc(int x, int y);
  float CalcFilterProc(int x, int y, int plane);
  float CalcFilterProcEx(int slot, int x, int y);
  float CalcFilterProcEx(int slot, int x, int y, int plane);
  void ClearFilterProc();

  // ---- Calibration ----------------------------------------------------------------------------------------------
  // A frame's plane p serves plane p of this image when the frame is colour, its plane 0 otherwise. Raw scale.
  // Stored results of CalcMinMax are stale afterwards.

  // Subtracts the dark frame; results below 0 become 0.
  void DarkClbrtn(CVynImage* dark, int bProgress);
  // Multiplies by mean over flat; the mean is that of plane 0 of the flat for all planes. Pixels whose flat is not
  // above 0 stay.
  void FlatClbrtn(CVynImage* flat, int bProgress);
  // The same with each plane's own mean, a pedestal (share of the mean added to the flat) and a gamma that bends the
  // flat within its range (0 or less: none). A flat without contrast in a plane is dropped from there on.
  void FlatClbrtn(CVynImage* flat, float pedestal, double gamma, int bProgress);
  // Dark and flat in one pass from `src` into the rectangle of this image. Either frame may be null. The arrays hold
  // minimum, maximum and mean of the flat, one entry a plane of a colour flat.
  void DarkFlat(CVynImage* src, CVynImage* dark, CVynImage* flat, float* flatMin, float* flatMax, float* flatAvr,
                float pedestal, double gamma, const CRect* pRect, int bProgress);

  // ---- Lab planes -----------------------------------------------------------------------------------------------
  // New images of this one's size in the Lab space of CColor, L on 0..100; the caller owns them. Null when memory
  // lacks. 256-scale values are limited to 0..5000 before the conversion; a monochrome image counts as grey. A report
  // is always made. An image of two planes is taken as monochrome.

  // L in one plane, with the levels of this image's plane 0.
  CVynImage* MakeLPlane();
  // a and b in two planes; bClamp255 non-zero limits the values of a colour image to 0..255 instead.
  CVynImage* MakeAbPlane(int bClamp255);
  CVynImage* MakeLabPlane();

 protected:
  int GetHeightOfHistogram(const int* hist, int bins) const;
  // Turns a colour image into one plane with the levels of plane 0; the pixels are plane 0's.
  int ToGray();
  static float FlatGamma(float value, float high, float low, double gamma);

  // The address of a pixel and of column 0 of a row; null outside, and when the samples are no floats.
  const float* FloatAdr(int x, int y, int plane) const {
    return BitsPixel == -32 ? static_cast<const float*>(GetImageAdr(x, y, plane, 1, 0, nullptr)) : nullptr;
  }
  const float* Row(int y, int plane) const { return FloatAdr(0, y, plane); }

  const float* BufRowAdr[2] = {nullptr, nullptr};
  int BufRowNo[2] = {-1, -1};
  float MinPixel[3] = {};
  float MaxPixel[3] = {};
  float AvrPixel[3] = {};
  CfPoint StdPt[2];
  CfPoint StdCtr;
  CRect BkgRect[32];
  CPoint StarPt;
  CPoint SkyPt;
  int SkySize = 0;
  CPoint PickupPt;
  CfPoint CrossGaugePt;
  int ShowCrossGaugeFlag = 0;
  HWND ProgressHandle = nullptr;
  int ProgressOn = 0;
  int ProgressDirect = 0;
  int ProgressTotal = 0;
  int ProgressStep = 0;
  int ProgressCount = 0;
  int ProgressNext = 0;
  CFilterProc FilterProc[3];
  CFilterProc* CurFilterProc = &FilterProc[0];
  CFilterProcEx FilterProcEx[6];
  CString RegKey;

 private:
  // The store that the cached rows lie in, by its number.
  std::uint64_t bufStore_ = 0;

  void Init();
  void CopyFieldList(const CVynImage& src);
  void CopyImageInternal(const CVynImage& src, HWND window, const wchar_t* message);
  int ShowProgressContinue();
  HDIB GetDib8Mono(BITMAPINFOHEADER* header) const;
  HDIB GetDib8Color(BITMAPINFOHEADER* header) const;
  HDIB GetDib24Mono(BITMAPINFOHEADER* header) const;
  HDIB GetDib24Color(BITMAPINFOHEADER* header) const;
  // Blends `src` into this image under plane 0 of `mask`, taken through its levels to 0..1: there `src` shows fully at
  // 0 and this image at 1, with bReverse the other way round. A mask without a level range changes nothing.
  void ApplyMask_Do0_x(CVynImage* src, CVynImage* mask, int left, int right, int top, int bottom, int bReverse);
};
