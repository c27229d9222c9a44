// Bitmaps that the host paints.
#pragma once

#include <cstddef>

#include "qmrimg/platform/device.h"
#include "qmrimg/platform/global_memory.h"

// A device-independent bitmap: the depth is that of the device it is made for, rows are stored bottom-up and padded
// to 4 bytes.
class QMR_API CBaseDIB : public CObject {
 public:
  CBaseDIB() = default;
  CBaseDIB(const CBaseDIB&) = delete;
  CBaseDIB& operator=(const CBaseDIB&) = delete;
  ~CBaseDIB() override;

  // A bitmap for the window's device (32 bits without a window). On a device of 8 bits the colours are `palette`'s
  // 256 entries. 0 when it can't be made; a size of 0 or less leaves the object as it was.
  virtual int Create(CWnd* wnd, int width, int height, PALETTEENTRY* const palette, int option) = 0;
  virtual int Create(CWnd* wnd, int width, int height, int option) = 0;
  // Frees everything.
  virtual void Empty() = 0;

  int GetWidth() const { return Width; }
  int GetHeight() const { return Height; }
  int GetBitCount() const { return BitCount; }
  int GetLineBytes() const { return LineBytes; }
  int GetColorUse() const { return ColorUse; }
  int GetPaletteSize() const { return PaletteSize; }
  // Header and colour table; null for an empty bitmap.
  const BITMAPINFO* GetBmpInfo() const { return BmpInfo; }

 protected:
  // Makes the header and the fields that follow from the device; false when memory lacks or the bits would not fit a
  // header.
  bool MakeHeader(CWnd* wnd, int width, int height, const PALETTEENTRY* palette);
  // A copy of the other's header and geometry; false when memory lacks.
  bool CopyHeader(const CBaseDIB& other);
  void FreeHeader();

  BITMAPINFO* BmpInfo = nullptr;
  int BitCount = 0;
  int ColorUse = 0;
  int PaletteSize = 0;
  int LineBytes = 0;
  int Width = 0;
  int Height = 0;
};

// A bitmap in one section of memory, drawn through a device context of its own.
//
// Readers of addresses give null, and writers by coordinates do nothing, outside the bitmap.
class QMR_API CMemoryDIB : public CBaseDIB {
 public:
  CMemoryDIB() = default;
  CMemoryDIB(const CMemoryDIB& other);
  // A section of the same size with copies of header and bits; empty when memory lacks.
  CMemoryDIB& operator=(const CMemoryDIB& other);
  ~CMemoryDIB() override;

  // The last argument has no effect.
  int Create(CWnd* wnd, int width, int height, PALETTEENTRY* const palette, int option) override;
  int Create(CWnd* wnd, int width, int height, int option) override;
  void Empty() override;

  // A zeroed block with the 40-byte header and the bits (no colour table), which the caller frees; null for an empty
  // bitmap or without memory.
  HDIB CreateHDIB() const;
  CDC* GetDC() { return &MemDC; }

  BYTE* GetImageAdr8(int x, int y) const { return Address(x, y, 1); }
  BYTE* GetImageAdr16(int x, int y) const { return Address(x, y, 2); }
  BYTE* GetImageAdr24(int x, int y) const { return Address(x, y, 3); }
  BYTE* GetImageAdr32(int x, int y) const { return Address(x, y, 4); }

  // `colour` is 0x00BBGGRR, or a palette index on 8 bits. 16 bits store 5-5-5 with red in bits 10 to 14; 24 and 32
  // bits store blue, green, red in three bytes. Other depths do nothing.
  void SetPixel(int x, int y, COLORREF colour);
  void SetPixel(void* adr, COLORREF colour);
  void SetPixel8(int x, int y, COLORREF colour);
  void SetPixel8(void* adr, COLORREF colour);
  void SetPixel16(int x, int y, COLORREF colour);
  void SetPixel16(void* adr, COLORREF colour);
  void SetPixel16(void* adr, BYTE r, BYTE g, BYTE b);
  void SetPixel24(int x, int y, COLORREF colour);
  void SetPixel24(void* adr, COLORREF colour);
  void SetPixel32(int x, int y, COLORREF colour);
  void SetPixel32(void* adr, COLORREF colour);

 private:
  int CreateFor(CWnd* wnd, int width, int height, const PALETTEENTRY* palette);
  // The section and its context for the header that stands.
  bool MakeSection(const CDC* device);
  BYTE* Address(int x, int y, int bytes) const;

  HBITMAP BitmapHandle = nullptr;
  CDC MemDC;
  BYTE* Bits = nullptr;
};
