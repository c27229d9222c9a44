// The base image: geometry, levels, origin, header and pixel store.
#pragma once

#include <cstddef>
#include <vector>

#include "qmrimg/platform/global_memory.h"
#include "qmrimg/platform/object.h"
#include "qmrimg/platform/text.h"
#include "qmrimg/platform/window.h"
#include "qmrimg/store/header.h"
#include "qmrimg/store/vm_image.h"

// Samples of one code in one or more planes. `x` runs from 0 to Width - 1 and `y` from 0 (the top row) to
// Height - 1; a colour image holds red, green and blue in planes 0, 1 and 2. Operations of this library work on
// images with the sample code -32.
//
// The sample code is 8, 16 or 32 for integer samples, -32 and -64 for floating point. Each plane has display
// levels, LevelMin and LevelMax; a new image has 0 and 255, or 0 and 65535 with 16 bits.
//
// Members that return int give non-zero for success and 0 for a lack of memory. The window and the text that close
// some of the signatures would show progress of long allocations; null for both means silence.
class QMR_API CImage : public CObject {
 public:
  // An image without pixels; raises the memory exception.
  CImage();
  // An image of that shape whose pixels are 0; `flag` has no effect. Raises the memory exception.
  CImage(int bits, int width, int height, int planes, double bscale, double bzero, int flag, HWND window = nullptr,
         const wchar_t* message = nullptr);
  // A deep copy; raises the memory exception.
  CImage(const CImage& src, HWND window = nullptr, const wchar_t* message = nullptr);
  CImage& operator=(const CImage&) = delete;
  ~CImage() override;

  int GetWidth() const { return Width; }
  int GetHeight() const { return Height; }
  int GetPlanes() const { return Planes; }
  int GetBitsPixel() const { return BitsPixel; }
  int IsSigned() const { return Signed; }
  double GetBscale() const { return Bscale; }
  double GetBzero() const { return Bzero; }
  int GetRawImageBits() const { return RawImageBits; }
  void SetRawImageBits(int bits) { RawImageBits = bits; }
  int HasOwnLevel() const { return OwnLevel; }
  void SetOwnLevel(int own) { OwnLevel = own; }
  int IsSaveableFile() const { return SaveableFile; }
  void SetSaveableFile(int saveable) { SaveableFile = saveable; }
  int IsSaveableFormat() const { return SaveableFormat; }
  void SetSaveableFormat(int saveable) { SaveableFormat = saveable; }
  int GetOrgBitsPixel() const { return OrgBitsPixel; }
  void SetOrgBitsPixel(int bits) { OrgBitsPixel = bits; }
  int GetOrgPlanes() const { return OrgPlanes; }
  void SetOrgPlanes(int planes) { OrgPlanes = planes; }
  int GetOrgWidth() const { return OrgWidth; }
  void SetOrgWidth(int width) { OrgWidth = width; }
  int GetOrgHeight() const { return OrgHeight; }
  void SetOrgHeight(int height) { OrgHeight = height; }
  const CString& GetOrgFileName() const { return OrgFileName; }
  void SetOrgFileName(const CString& name) { OrgFileName = name; }
  int IsBayerImage() const { return BayerImage; }
  void SetBayerImage(int flag) { BayerImage = flag; }
  int IsHoneyCombImage() const { return HoneyCombImage; }
  void SetHoneyCombImage(int flag) { HoneyCombImage = flag; }
  int IsDevelopmentImage() const { return DevelopmentImage; }
  void SetDevelopmentImage(int flag) { DevelopmentImage = flag; }
  int IsOrgBayerImage() const { return OrgBayerImage; }
  void SetOrgBayerImage(int flag) { OrgBayerImage = flag; }
  int IsOrgHoneyCombImage() const { return OrgHoneyCombImage; }
  void SetOrgHoneyCombImage(int flag) { OrgHoneyCombImage = flag; }
  int IsOrgDevelopmentImage() const { return OrgDevelopmentImage; }
  void SetOrgDevelopmentImage(int flag) { OrgDevelopmentImage = flag; }
  // These change the field alone; AllocImage makes pixels for the fields.
  void SetWidth(int width) { Width = width; }
  void SetHeight(int height) { Height = height; }
  void SetBitsPixel(int bits) { BitsPixel = bits; }
  void SetSigned(int flag) { Signed = flag; }
  void SetBscale(double bscale) { Bscale = bscale; }
  void SetBzero(double bzero) { Bzero = bzero; }
  int* GetHistogramCullXPtr() const { return HistogramCullX; }
  int* GetHistogramCullYPtr() const { return HistogramCullY; }

  int GetBytesPixel() const;
  // Width * Height * Planes; the greatest int when that is more.
  int GetPixelCount() const;
  std::size_t GetImageSize() const;
  // 2 for a monochrome image, 3 for a colour image.
  int GetColorMode() const { return ColorMode; }
  int IsColor() const { return ColorMode > 2; }
  // Stores the plane count, and the colour mode that follows from it (an image of two planes counts as colour);
  // touches no pixels.
  void SetPlanes(int planes);
  // The pointer moved one pixel forward or back.
  void* GetNextAdr(void* p) const { return static_cast<BYTE*>(p) + GetBytesPixel(); }
  void* GetPrevAdr(void* p) const { return static_cast<BYTE*>(p) - GetBytesPixel(); }

  // Display levels of a plane, raw scale; 0 for a plane outside the image.
  double GetLevelMin(int plane) const { return HasLevel(plane) ? LevelMin[plane] : 0.0; }
  double GetLevelMax(int plane) const { return HasLevel(plane) ? LevelMax[plane] : 0.0; }
  double GetLevelRange(int plane) const { return HasLevel(plane) ? LevelRange[plane] : 0.0; }
  // Ignored for a plane outside the image. The range always is maximum minus minimum.
  void SetLevel(int plane, double min, double max);
  void SetLevelMin(int plane, double v);
  void SetLevelMax(int plane, double v);

  // Bscale times the sample plus Bzero; 0 for a sample code that is not defined or a place outside the image.
  double GetPixel(int x, int y, int plane) const;
  double GetPixel(const void* adr) const;

  // True when the header names no camera model: an image from an astronomical camera.
  int IsCcd() const { return Header->GetCameraModel().IsEmpty(); }
  CHeader* GetHeader() const { return Header; }
  int IsHistogramCullParam() const { return HistogramCullX && HistogramCullY; }
  // Counts of the sparse grid; 0 when the image has none.
  int GetHistogramCull(int* nX, int* nY) const;
  // Gives the image a sparse grid of sample columns and rows for histograms (the arrays are copied); empty arrays
  // take it away. Columns and rows outside the image are left out. Raises the memory exception.
  void SetHistogramCull(const std::vector<int>& columns, const std::vector<int>& rows);

  CCriticalSection* VmImageLock() { return VmImage ? VmImage->GetCriticalSection() : nullptr; }
  CVmImage* GetVmImage() const { return VmImage; }
  // The address of a pixel: bit 0 of `flags` says that the caller only reads, bit 1 pins. See CVmImage. Null also while
  // the fields tell of more than the store has: after SetWidth, SetHeight or SetBitsPixel, until AllocImage.
  void* GetImageAdr(int x, int y, int plane, unsigned flags, void** lock) const;
  // The form in common use, with the two flags apart.
  void* GetImageAdr(int x, int y, int plane, int readOnly, int pin, void** lock) const;
  int Unlock(void* lock) const { return VmImage ? VmImage->Unlock(lock) : 0; }
  void UnlockAll() const;
  std::vector<unsigned char> CreatePlaneBuffer() const;
  std::vector<unsigned char> GetPlaneImage(int plane) const;
  int SetPlaneImage(int plane, const std::vector<unsigned char>& data);

  // Makes this image a deep copy of the other.
  int CopyImage(const CImage& src, HWND window = nullptr, const wchar_t* message = nullptr);
  // Sample code, geometry and levels of the other; the pixels are 0.
  int Create(const CImage& src, HWND window = nullptr, const wchar_t* message = nullptr);
  // Gives up the pixels.
  void Empty();
  // Exchanges the contents of the two images; no pixel moves.
  void Swap(CImage* other);
  // Allocates pixels, all 0, for the geometry in the fields.
  int AllocImage(HWND window = nullptr, const wchar_t* message = nullptr);
  // A new geometry; all pixels are 0 afterwards. On failure the image keeps what it had.
  int ChangeSize(int width, int height, HWND window = nullptr, const wchar_t* message = nullptr);
  // Another plane count: existing planes stay (unless the geometry in the fields is no longer that of the pixels), new
  // ones are 0 and take the levels of the last one that there was. On failure the image keeps what it had.
  int ChangePlanes(int planes, HWND window = nullptr, const wchar_t* message = nullptr);
  // Converts the samples to the code `bits`: values stay as they are; integer targets round to nearest and clamp.
  // `a` and `b` have no effect. 0 also for a code that is not defined.
  int ChangeBits(int bits, int a, int b, HWND window = nullptr, const wchar_t* message = nullptr);
  // Takes over a bitmap of 8 bits (grey table: one plane; other colours: three), 24 or 32 bits, as 8-bit samples,
  // and frees it. 0, with the bitmap untouched, when it is null, damaged or of another kind.
  int AttachDIB(HDIB dib);

  // The smallest and largest value of the plane in raw scale, not-a-number left out; 0 and 0 when there is none.
  void GetMinMax(int plane, double* min, double* max) const;

 protected:
  int HasLevel(int plane) const { return plane >= 0 && plane < LevelCount; }

  int BitsPixel = -32;
  int Signed = 0;
  int ColorMode = 2;
  int Width = 0;
  int Height = 0;
  int Planes = 0;
  double Bscale = 1.0;
  double Bzero = 0.0;
  CVmImage* VmImage = nullptr;
  double* LevelMin = nullptr;
  double* LevelMax = nullptr;
  double* LevelRange = nullptr;
  int OwnLevel = 0;
  int SaveableFormat = 0;
  int SaveableFile = 0;
  CString OrgFileName;
  int OrgBitsPixel = 0;
  int OrgPlanes = 0;
  int OrgBayerImage = 0;
  int OrgHoneyCombImage = 0;
  int OrgDevelopmentImage = 0;
  int OrgWidth = 0;
  int OrgHeight = 0;
  int BayerImage = 0;
  int HoneyCombImage = 0;
  int RawImageBits = 0;
  int DevelopmentImage = 0;
  CHeader* Header;
  int* HistogramCullX = nullptr;
  int* HistogramCullY = nullptr;

 private:
  // Brings the level arrays to `planes` entries; false when memory lacks.
  bool ResizeLevels(int planes);
  bool CopyFrom(const CImage& src, bool pixels);
  // Whether the pixels have the geometry and the sample size of the fields.
  bool StoreFits() const;

  int LevelCount = 0;
  int CullCountX = 0;
  int CullCountY = 0;
};
