// Painting without a window system: devices of a settable depth, bitmaps in memory, and copies between them.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "qmrimg/platform/bitmap_header.h"
#include "qmrimg/platform/object.h"
#include "qmrimg/platform/window.h"

namespace qmr {

// Bits of a device-independent bitmap: rows bottom-up, each padded to 4 bytes.
struct DeviceBitmap {
  int width = 0;
  int height = 0;
  int bitCount = 0;
  std::ptrdiff_t lineBytes = 0;
  BYTE* bits = nullptr;
  std::vector<RGBQUAD> colours;  // 8 bits: the colour table

  // The first byte of row `y`, counted from the top.
  BYTE* Line(int y) const { return bits + (height - 1 - y) * lineBytes; }
};

}  // namespace qmr

using HBITMAP = qmr::DeviceBitmap*;
// 0x00BBGGRR.
using COLORREF = DWORD;

inline constexpr int BITSPIXEL = 12;
inline constexpr UINT DIB_RGB_COLORS = 0;
inline constexpr UINT DIB_PAL_COLORS = 1;

// Raster operations: what a copy does with source and target.
inline constexpr DWORD SRCCOPY = 0x00CC0020;
inline constexpr DWORD SRCPAINT = 0x00EE0086;   // or
inline constexpr DWORD SRCAND = 0x008800C6;     // and
inline constexpr DWORD SRCINVERT = 0x00660046;  // exclusive or

// The colours of an 8-bit device.
class QMR_API CPalette : public CObject {
 public:
  CPalette() = default;
  explicit CPalette(std::vector<PALETTEENTRY> entries) : entries_(std::move(entries)) {}
  ~CPalette() override;
  const std::vector<PALETTEENTRY>& GetEntries() const { return entries_; }

 private:
  std::vector<PALETTEENTRY> entries_;
};

// A device context: a device of some depth, and the bitmap that is selected into it, if any. The bitmap and the
// palette stay the caller's.
class QMR_API CDC : public CObject {
 public:
  CDC() = default;
  explicit CDC(int bitsPixel) : deviceBits_(bitsPixel) {}
  CDC(const CDC&) = delete;
  CDC& operator=(const CDC&) = delete;
  ~CDC() override;

  // Becomes a memory context for the device of `dc`, or for one of 32 bits when that is null. Gives 1.
  BOOL CreateCompatibleDC(const CDC* dc);
  // Lets go of bitmap and palette. Gives 1.
  BOOL DeleteDC();
  // Selects a bitmap and gives the one before it.
  HBITMAP SelectObject(HBITMAP bitmap);
  HBITMAP GetCurrentBitmap() const { return bitmap_; }
  // Selects a palette and gives the one before it.
  const CPalette* SelectPalette(const CPalette* palette, BOOL background);
  // The number of palette entries in force.
  UINT RealizePalette() const;
  // BITSPIXEL: the depth of the selected bitmap, otherwise of the device. 0 for other numbers.
  int GetDeviceCaps(int index) const;

  // The colour of a pixel; 0xFFFFFFFF outside the bitmap.
  COLORREF GetPixel(int x, int y) const;
  // Copies a block of pixels. What lies outside one of the bitmaps is left out. 0 without bitmaps of 8, 16, 24 or 32
  // bits, or with another raster operation than those above.
  BOOL BitBlt(int x, int y, int width, int height, const CDC* src, int srcX, int srcY, DWORD rop);
  // The same with scaling to the nearest pixel; 0 also when a size is not positive.
  BOOL StretchBlt(int x, int y, int width, int height, const CDC* src, int srcX, int srcY, int srcWidth, int srcHeight,
                  DWORD rop);

 private:
  COLORREF Colour(const BYTE* pixel) const;
  void Store(BYTE* pixel, COLORREF colour, DWORD rop) const;

  int deviceBits_ = 32;
  HBITMAP bitmap_ = nullptr;
  const CPalette* palette_ = nullptr;
};

// A window that can be painted into: the host's window for messages, a depth, and a client area in memory.
class QMR_API CWnd : public CObject {
 public:
  explicit CWnd(int bitsPixel = 32, HWND window = nullptr);
  CWnd(const CWnd&) = delete;
  CWnd& operator=(const CWnd&) = delete;
  ~CWnd() override;

  HWND GetSafeHwnd() const { return window_; }
  int GetDeviceDepth() const { return bitsPixel_; }
  // Drops the client area.
  void SetDeviceDepth(int bitsPixel);
  // Gives the window a client area of that size, all black; 0 when memory lacks or a size is not positive.
  BOOL SetClientSize(int width, int height);
  // The context of the client area; the window's own.
  CDC* GetDC() { return &dc_; }

 private:
  HWND window_;
  int bitsPixel_;
  CDC dc_;
};

// The context for painting a window: draws into its client area.
class QMR_API CPaintDC : public CDC {
 public:
  explicit CPaintDC(CWnd* window);
  ~CPaintDC() override;
};

// A bitmap with memory of its own for the header, its colour table included when it has 8 bits; `*bits` receives the
// memory, all 0. Null when memory lacks or the size is not positive. DIB_PAL_COLORS counts on the palette selected
// into the context; without one the table serves.
QMR_API HBITMAP CreateDIBSection(const BITMAPINFO* info, UINT usage, void** bits);
// Frees a bitmap; 0 for null.
QMR_API BOOL DeleteObject(HBITMAP bitmap);
// Bytes of a row: `bits` rounded down to whole bytes and up to 4 of them.
QMR_API std::ptrdiff_t DibLineBytes(int width, int bitCount);

// The main window of the calling thread, null until it was set.
QMR_API CWnd* AfxGetMainWnd();
namespace qmr {
QMR_API void SetMainWindow(CWnd* window);
}
